#pragma once

#include "Platform/Basics/Date.hpp"

#include <boost/describe/enum.hpp>

namespace tessera
{

/// The case of an `AccountState`, without what it holds.
enum class AccountStateKind
{
    loading,
    failed,
    pending,
    signedIn,
    signedOut
};
BOOST_DESCRIBE_ENUM(AccountStateKind, loading, failed, pending, signedIn, signedOut)

/// Why the state was assigned.
enum class AccountTransitionCause
{
    /// Restored from the keychain, at launch or by a refresh of an account that had not loaded.
    restored,
    /// There was nothing to restore.
    noStoredSession,
    /// The stored account information belonged to another user or was damaged, and was removed.
    storedInfoRejected,
    signedIn,
    /// Signed in, but the account information could not be loaded.
    signedInWithoutInfo,
    /// The host cancelled a sign-in whose token was stored already.
    signInCancelled,
    /// The server sent the account information of another user than the token's.
    otherUsersInfo,
    refreshed,
    refreshFailed,
    /// The server refused the token in a refresh. Recorded also where no state was assigned, since
    /// the last good information stays.
    refreshRefused,
    /// The host called `signOut`.
    signedOut,
    /// The host called `deauthenticate`.
    deauthenticated,
    /// The account was deleted.
    deleted,
    /// Another program of the user signed in.
    otherProgramSignedIn,
    /// Another program of the user signed out.
    otherProgramSignedOut
};
BOOST_DESCRIBE_ENUM(AccountTransitionCause, restored, noStoredSession, storedInfoRejected, signedIn,
                    signedInWithoutInfo, signInCancelled, otherUsersInfo, refreshed, refreshFailed,
                    refreshRefused, signedOut, deauthenticated, deleted, otherProgramSignedIn,
                    otherProgramSignedOut)

/// One assignment of a state, for the question "why was I signed out?". It holds no text and names
/// nobody.
struct AccountTransition
{
    platform::Date time;
    AccountStateKind state{};
    AccountTransitionCause cause{};

    bool operator==(const AccountTransition&) const = default;
};

}  // namespace tessera
