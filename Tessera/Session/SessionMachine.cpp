#include "Tessera/Session/SessionMachine.hpp"

#include "Tessera/Tokens/CaseError.hpp"

#include <utility>

namespace tessera
{
namespace
{

using Status = AccountRefreshStatus;

constexpr double refreshInterval = 3600;

bool isDue(const Status::Completed& completed, platform::Date now)
{
    return completed.at + refreshInterval <= now;
}

}  // namespace

AccountStateKind kind(const AccountState& state)
{
    return static_cast<AccountStateKind>(state.value().index());
}

std::string infoErrorMessage(const std::string& errorDescription)
{
    return errorSentence("Account_Info_Load_Failed") + "\n\n" + errorDescription;
}

SessionOrders SessionMachine::assign(AccountState state, AccountTransitionCause cause)
{
    state_ = std::move(state);
    return {.publish = cause};
}

bool SessionMachine::refreshesOnActivation(platform::Date now) const
{
    if (signingIn_ || refreshStatus_.is<Status::Refreshing>())
        return false;
    if (const auto* completed = refreshStatus_.get<Status::Completed>())
        return state_.get<AccountProfile>() != nullptr && isDue(*completed, now);
    return state_.get<AccountState::SignedOut>() == nullptr;
}

SessionOrders SessionMachine::restored(StoredSession session, AccountTransitionCause cause)
{
    if (!session.token)
    {
        // Whoever signed out while this program did not run left the information behind.
        auto orders =
            assign(AccountState::signedOut(), cause == AccountTransitionCause::otherProgramSignedIn
                                                  ? AccountTransitionCause::otherProgramSignedOut
                                                  : AccountTransitionCause::noStoredSession);
        orders.removeInfo = true;
        return orders;
    }
    const bool belongs = session.info && session.info->payload.user == session.token->payload.user;
    if (belongs)
        return assign(AccountState::signedIn({*std::move(session.token), *std::move(session.info),
                                              AccountProfileSource::local}),
                      cause);
    const bool rejected = session.info || session.infoUnusable;
    auto orders = assign(AccountState::pending({*std::move(session.token), std::nullopt}),
                         rejected && cause == AccountTransitionCause::restored
                             ? AccountTransitionCause::storedInfoRejected
                             : cause);
    orders.removeInfo = rejected;
    return orders;
}

SessionMachine::RefreshAnswer SessionMachine::refreshAsked(bool force, platform::Date now) const
{
    if (refreshStatus_.is<Status::Refreshing>())
        return RefreshAnswer::join;
    if (signingIn_)
        return RefreshAnswer::waitForSignIn;
    const auto* completed = refreshStatus_.get<Status::Completed>();
    if (!force && completed && state_.get<AccountProfile>() && !isDue(*completed, now))
        return RefreshAnswer::notDue;
    return RefreshAnswer::start;
}

SessionOrders SessionMachine::loaded(AccountProfile profile, platform::Date now,
                                     AccountTransitionCause cause)
{
    refreshStatus_ = Status::completed(now);
    return assign(AccountState::signedIn(std::move(profile)), cause);
}

bool SessionMachine::restoresFirst() const
{
    return state_.get<AccountState::Loading>() || state_.get<AccountState::Failed>();
}

void SessionMachine::refreshStarts()
{
    beforeRefresh_ = std::exchange(refreshStatus_, Status::refreshing());
}

SessionOrders SessionMachine::refreshed(AccountTokenJWT token, AccountInfoJWT info,
                                        platform::Date now)
{
    return loaded({std::move(token), std::move(info), AccountProfileSource::remote}, now,
                  AccountTransitionCause::refreshed);
}

SessionOrders SessionMachine::refreshFailed(const RefreshFailure& failure, platform::Date now)
{
    const auto cause = failure.refused ? AccountTransitionCause::refreshRefused
                                       : AccountTransitionCause::refreshFailed;
    SessionOrders orders;
    if (failure.notRestored || restoresFirst())
        orders = assign(AccountState::failed(failure.message), cause);
    else if (const auto* pending = state_.get<AccountPendingProfile>())
        orders = assign(
            AccountState::pending({pending->tokenJWT, infoErrorMessage(failure.message)}), cause);

    const bool signedOut = state_.get<AccountState::SignedOut>() != nullptr;
    refreshStatus_ = signedOut ? Status::completed(now) : Status::failed(now);
    orders.scheduleRetry = !signedOut;
    return orders;
}

void SessionMachine::refreshCancelled()
{
    if (refreshStatus_.is<Status::Refreshing>())
        refreshStatus_ = beforeRefresh_;
}

bool SessionMachine::retryCalledFor() const
{
    return refreshStatus_.is<Status::Failed>();
}

Generation SessionMachine::signInBegins()
{
    refreshCancelled();
    signingIn_ = true;
    return ++generation_;
}

SessionOrders SessionMachine::signedIn(AccountTokenJWT token, AccountInfoJWT info,
                                       platform::Date now)
{
    return loaded({std::move(token), std::move(info), AccountProfileSource::remote}, now,
                  AccountTransitionCause::signedIn);
}

SessionOrders SessionMachine::signedInWithoutInfo(AccountTokenJWT token,
                                                  std::optional<std::string> message,
                                                  platform::Date now)
{
    const auto cause = message ? AccountTransitionCause::signedInWithoutInfo
                               : AccountTransitionCause::signInCancelled;
    refreshStatus_ = Status::failed(now);
    auto orders = assign(AccountState::pending({std::move(token), std::move(message)}), cause);
    orders.scheduleRetry = true;
    return orders;
}

Generation SessionMachine::signOutBegins(platform::Date now)
{
    refreshStatus_ = Status::completed(now);
    signingIn_ = false;
    lastSignOut_ = ++generation_;
    return generation_;
}

SessionOrders SessionMachine::signedOut(AccountTransitionCause cause)
{
    return assign(AccountState::signedOut(), cause);
}

SessionOrders SessionMachine::signedOutElsewhere(platform::Date now)
{
    refreshStatus_ = Status::completed(now);
    auto orders = assign(AccountState::signedOut(), AccountTransitionCause::otherProgramSignedOut);
    orders.removeInfo = true;
    return orders;
}

Generation SessionMachine::followBegins()
{
    refreshCancelled();
    signingIn_ = false;
    return ++generation_;
}

void SessionMachine::tokenKnown(std::optional<platform::SecretBytes> token)
{
    known_ = KnownToken{std::move(token)};
}

void SessionMachine::tokenLeftBehind(std::optional<platform::SecretBytes> token)
{
    if (token)
        known_ = KnownToken{std::move(token), true};
    else if (known_)
        known_->leftBehind = known_->isGuessed = true;
}

void SessionMachine::tokenStoredTooLate(Generation begun, platform::SecretBytes token)
{
    // A sign-out since has found it, and has removed it if it could.
    const bool wasSignedOut = begun < lastSignOut_;
    if (wasSignedOut && (!known_ || known_->isGuessed))
        tokenLeftBehind(std::move(token));
    else if (!wasSignedOut && signingIn_)
        tokenKnown(std::move(token));
}

bool SessionMachine::storedTokenIsUnpublished() const
{
    if (!known_ || !known_->token || known_->leftBehind)
        return false;
    const auto published = state_.token();
    return !published || *known_->token != platform::SecretBytes(published->bytes());
}

std::optional<platform::SecretBytes> SessionMachine::leftBehindToken() const
{
    return known_ && known_->leftBehind && !signingIn_ ? known_->token : std::nullopt;
}

SessionMachine::StoredToken SessionMachine::tokenRead(
    const std::optional<platform::SecretBytes>& token, bool announced)
{
    const bool nothingToLose =
        !token && !signingIn_ && state_.get<AccountState::SignedOut>() != nullptr;
    if (nothingToLose)
        tokenKnown(std::nullopt);
    else if (!known_ && signingIn_ && (restoresFirst() || announced))
        tokenKnown(token);
    else if (!known_ && !restoresFirst() && !announced)
        tokenLeftBehind(token);
    if (known_ && known_->token == token)
        return StoredToken::known;
    return token ? StoredToken::another : StoredToken::gone;
}

}  // namespace tessera
