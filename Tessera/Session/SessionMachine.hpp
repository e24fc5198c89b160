#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "Tessera/Model/AccountState.hpp"
#include "Tessera/Session/AccountRefreshStatus.hpp"
#include "Tessera/Session/AccountTransition.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace tessera
{

/// Sessions one after the other: a sign-in, a sign-out and another program's change each begin one.
/// Work of an older generation has no effect any more.
using Generation = std::uint64_t;

/// What was found in the keychain, verified.
struct StoredSession
{
    /// Nothing: there is no such item.
    std::optional<AccountTokenJWT> token;
    /// Nothing: there is none, or none that could be used.
    std::optional<AccountInfoJWT> info;
    /// There is an item, but it is damaged, not the server's, or another client's.
    bool infoUnusable = false;
};

/// What the account is to do after an input, besides assigning the state.
struct SessionOrders
{
    /// The state was assigned, for this reason, and is to be published.
    std::optional<AccountTransitionCause> publish;
    bool removeInfo = false;
    bool scheduleRetry = false;

    bool operator==(const SessionOrders&) const = default;
};

/// Every decision of a session, without doing anything: what an input means in the situation that
/// it meets. The account feeds it and carries out its orders.
class SessionMachine
{
public:
    const AccountState& state() const noexcept { return state_; }
    const AccountRefreshStatus& refreshStatus() const noexcept { return refreshStatus_; }
    Generation generation() const noexcept { return generation_; }
    bool signingIn() const noexcept { return signingIn_; }

    // ---- Launch and activation

    /// Whether the keychain is to be read, at launch and before a refresh goes on: a session that
    /// stands is not read again.
    bool restoresFirst() const;

    /// Whether the host's coming to the front starts a refresh. Due is what is 3600 seconds old by
    /// the wall clock, to the second.
    bool refreshesOnActivation(platform::Date now) const;

    /// The keychain was read, at launch, by a refresh, or to follow another program.
    SessionOrders restored(StoredSession session, AccountTransitionCause cause);

    // ---- Refresh

    enum class RefreshAnswer
    {
        join,
        waitForSignIn,
        notDue,
        start
    };
    RefreshAnswer refreshAsked(bool force, platform::Date now) const;

    void refreshStarts();
    SessionOrders refreshed(AccountTokenJWT token, AccountInfoJWT info, platform::Date now);

    struct RefreshFailure
    {
        /// The sentence of the error.
        std::string message;
        /// The server refused the token.
        bool refused = false;
        /// The session could not be read back in the first place.
        bool notRestored = false;
    };
    SessionOrders refreshFailed(const RefreshFailure& failure, platform::Date now);

    /// A refresh that was cancelled, which is no failure, was never made.
    void refreshCancelled();

    /// Whether the retry of a failed refresh is still called for.
    bool retryCalledFor() const;

    // ---- Sign-in

    /// Begins a generation. A refresh that was under way was never made.
    Generation signInBegins();
    SessionOrders signedIn(AccountTokenJWT token, AccountInfoJWT info, platform::Date now);

    /// The token is good; `message` is why there is no information, absent when nothing failed.
    SessionOrders signedInWithoutInfo(AccountTokenJWT token, std::optional<std::string> message,
                                      platform::Date now);
    void signInEnds() { signingIn_ = false; }

    // ---- Sign-out, and what other programs do

    Generation signOutBegins(platform::Date now);
    SessionOrders signedOut(AccountTransitionCause cause);

    Generation followBegins();
    SessionOrders signedOutElsewhere(platform::Date now);

    /// The account is gone: nothing has an effect any more.
    void released() { ++generation_; }

    // ---- The stored token

    /// Remembers what this account itself has read, written or removed.
    void tokenKnown(std::optional<platform::SecretBytes> token);
    /// A sign-out could not remove it: it is known, and it is no session. Nothing: it could not be
    /// read either, so it is taken for the one that was known.
    void tokenLeftBehind(std::optional<platform::SecretBytes> token);
    /// A sign-in of this generation has stored it, and something newer has begun meanwhile.
    void tokenStoredTooLate(Generation begun, platform::SecretBytes token);

    /// Whether this account has stored a session that its state does not show.
    bool storedTokenIsUnpublished() const;

    /// What a sign-out could not remove; nothing while a sign-in is about to replace it.
    std::optional<platform::SecretBytes> leftBehindToken() const;

    enum class StoredToken
    {
        /// The one that is known.
        known,
        gone,
        another
    };
    /// What a read of the stored token tells. Where none was known and none is awaited, it is known
    /// from now on: as what a sign-out could not even read, unless another program has announced a
    /// change.
    StoredToken tokenRead(const std::optional<platform::SecretBytes>& token, bool announced);

private:
    /// Nothing, because it was never read; otherwise the token, or that there is none.
    struct KnownToken
    {
        std::optional<platform::SecretBytes> token;
        bool leftBehind = false;
        /// It could not be read when it was left behind.
        bool isGuessed = false;
    };

    SessionOrders assign(AccountState state, AccountTransitionCause cause);
    SessionOrders loaded(AccountProfile profile, platform::Date now, AccountTransitionCause cause);

    AccountState state_ = AccountState::loading();
    AccountRefreshStatus refreshStatus_ = AccountRefreshStatus::pending();
    AccountRefreshStatus beforeRefresh_ = AccountRefreshStatus::pending();
    std::optional<KnownToken> known_;
    Generation generation_ = 0;
    Generation lastSignOut_ = 0;
    bool signingIn_ = false;
};

AccountStateKind kind(const AccountState& state);

/// The message of a session without information: the framework's sentence, an empty line, and the
/// sentence of the error.
std::string infoErrorMessage(const std::string& errorDescription);

}  // namespace tessera
