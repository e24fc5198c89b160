#pragma once

#include "Tessera/Session/SessionMachine.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Included before the account's own sources when they are compiled for the simulation: there, the
/// state machine notes each row of its table that is reached. A row is an input and the situation
/// that it meets.

namespace simulation
{

void rowReached(const std::string& row);

/// Every row that can be reached, and others that were reached all the same behind them.
const std::vector<std::string>& rows();

/// Adds how often each was reached, and counts from zero again.
void takeRows(std::span<std::uint64_t> times);

std::string situation(const tessera::AccountState& state);
std::string situation(const tessera::AccountState& state,
                      const tessera::AccountRefreshStatus& status);
std::string nameOf(tessera::AccountTransitionCause cause);

}  // namespace simulation

namespace tessera
{

/// `SessionMachine` as its callers see it. It decides nothing.
class NotingMachine : public SessionMachine
{
public:
    bool restoresFirst() const
    {
        note("launch or refresh");
        return SessionMachine::restoresFirst();
    }

    bool refreshesOnActivation(platform::Date now) const
    {
        const bool refreshes = SessionMachine::refreshesOnActivation(now);
        if (signingIn())
            simulation::rowReached("activation, signing in");
        else
            simulation::rowReached("activation, " +
                                   simulation::situation(state(), refreshStatus()) +
                                   (refreshes ? ": refresh" : ": nothing"));
        return refreshes;
    }

    SessionOrders restored(StoredSession session, AccountTransitionCause cause)
    {
        const char* found = "nothing";
        if (session.token)
            found = session.infoUnusable ? "bad information" : "no information";
        if (session.token && session.info)
            found = session.info->payload.user == session.token->payload.user ? "both"
                                                                              : "another user's";
        simulation::rowReached(std::string("read ") + found + ", " + simulation::nameOf(cause));
        return SessionMachine::restored(std::move(session), cause);
    }

    RefreshAnswer refreshAsked(bool force, platform::Date now) const
    {
        const auto answer = SessionMachine::refreshAsked(force, now);
        const std::string row = force ? "forced refresh, " : "refresh, ";
        if (answer == RefreshAnswer::join)
            simulation::rowReached(row + "refreshing");
        else if (answer == RefreshAnswer::waitForSignIn)
            simulation::rowReached(row + "signing in");
        else
            simulation::rowReached(row + simulation::situation(state()) +
                                   (answer == RefreshAnswer::notDue ? ": not due" : ": start"));
        return answer;
    }

    SessionOrders refreshed(AccountTokenJWT token, AccountInfoJWT info, platform::Date now)
    {
        note("refreshed");
        return SessionMachine::refreshed(std::move(token), std::move(info), now);
    }

    SessionOrders refreshFailed(const RefreshFailure& failure, platform::Date now)
    {
        const char* how = failure.refused ? "refresh refused" : "refresh failed";
        note(failure.notRestored ? "refresh without a keychain" : how);
        return SessionMachine::refreshFailed(failure, now);
    }

    void refreshCancelled()
    {
        note("refresh cancelled");
        SessionMachine::refreshCancelled();
    }

    bool retryCalledFor() const
    {
        const bool isCalledFor = SessionMachine::retryCalledFor();
        simulation::rowReached(isCalledFor ? "retry, failed" : "retry, not called for");
        return isCalledFor;
    }

    Generation signInBegins()
    {
        note("sign-in begins");
        return SessionMachine::signInBegins();
    }

    SessionOrders signedIn(AccountTokenJWT token, AccountInfoJWT info, platform::Date now)
    {
        note("signed in");
        return SessionMachine::signedIn(std::move(token), std::move(info), now);
    }

    SessionOrders signedInWithoutInfo(AccountTokenJWT token, std::optional<std::string> message,
                                      platform::Date now)
    {
        note(message ? "signed in without information" : "sign-in cancelled");
        return SessionMachine::signedInWithoutInfo(std::move(token), std::move(message), now);
    }

    Generation signOutBegins(platform::Date now)
    {
        note("sign-out begins");
        return SessionMachine::signOutBegins(now);
    }

    SessionOrders signedOut(AccountTransitionCause cause)
    {
        simulation::rowReached("signed out, " + simulation::nameOf(cause));
        return SessionMachine::signedOut(cause);
    }

    Generation followBegins()
    {
        note("following begins");
        return SessionMachine::followBegins();
    }

    SessionOrders signedOutElsewhere(platform::Date now)
    {
        note("signed out elsewhere");
        return SessionMachine::signedOutElsewhere(now);
    }

    StoredToken tokenRead(const std::optional<platform::SecretBytes>& token, bool announced)
    {
        const auto before = simulation::situation(state());
        const auto found = SessionMachine::tokenRead(token, announced);
        const char* what = found == StoredToken::known ? "the known token" : "another token";
        simulation::rowReached(std::string(found == StoredToken::gone ? "no token" : what) +
                               " is stored, " + before);
        return found;
    }

private:
    void note(const std::string& input) const
    {
        simulation::rowReached(input + ", " + simulation::situation(state()));
    }
};

}  // namespace tessera

/// The session's sources keep this machine in the place of the other.
#define SessionMachine NotingMachine
