#pragma once

#include <boost/describe/enum.hpp>

#include <string>

namespace tessera
{

/// What an account noticed and no operation could throw.
enum class AccountDiagnosticCode
{
    /// The keychain could not be read when the session was to be restored.
    keychainUnreadable,
    /// The stored token is damaged, or was not signed by the environment's server.
    storedTokenUnusable,
    /// The keychain did not let go of the session: other programs, and the next start of this one,
    /// will find it again.
    sessionNotRemoved,
    /// The account information is current, but the keychain did not take it; the next refresh
    /// writes it again.
    infoNotStored,
    /// The account information could not be refreshed; the last good one stays published.
    refreshFailed,
    /// The server refused the token of the session. Nothing was signed out: the user decides.
    sessionRefused,
    /// `authenticate` was given a token that could not be made the session.
    authenticationFailed,
    /// Other programs of the user could not be told of the change of the token.
    changeNotAnnounced
};
BOOST_DESCRIBE_ENUM(AccountDiagnosticCode, keychainUnreadable, storedTokenUnusable,
                    sessionNotRemoved, infoNotStored, refreshFailed, sessionRefused,
                    authenticationFailed, changeNotAnnounced)

/// What was noticed, and its sentence.
struct AccountDiagnostic
{
    AccountDiagnosticCode code{};
    /// The sentence for the user, of the error behind it; empty for `changeNotAnnounced`. It may
    /// hold a text of the server, so it belongs on the screen and not in a log.
    std::string message;

    bool operator==(const AccountDiagnostic&) const = default;
};

}  // namespace tessera
