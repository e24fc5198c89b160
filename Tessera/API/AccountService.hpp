#pragma once

#include "Platform/Concurrency/Actor.hpp"
#include "Platform/Networking/URLSession.hpp"
#include "Platform/Services/Services.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/API/AccountRequestBuilder.hpp"

#include <memory>
#include <string>

namespace tessera
{

/// Performs the calls of the account API. It is an actor: its calls run in order off the caller's
/// thread, and while one awaits the network, others may run. A call reads the stored token once,
/// when it builds its request.
///
/// Every call may throw, and changes nothing when it does:
/// - `AccountRequestBuilderError` when the request cannot be built;
/// - `platform::CancellationError` when the caller is cancelled, before anything is sent or while
///   the answer is awaited;
/// - `platform::URLError` when the transfer fails;
/// - `AccountRemoteError` when the server refuses, and
///   `nettasks::AsyncURLSessionDataTaskDecodingError` when it refuses in words of another kind.
///
/// Nothing is retried. Tokens are handed on as they come: the caller decodes and verifies them.
/// Letting go of the service ends none of its calls.
class AccountService
{
public:
    AccountService(
        AccountEnvironment environment, AccountClient client,
        std::shared_ptr<platform::URLSession> urlSession = platform::services().urlSession,
        const platform::Executor& executor = platform::services().background);

    const AccountEnvironment& environment() const noexcept;
    const AccountClient& client() const noexcept;
    const std::shared_ptr<platform::URLSession>& urlSession() const noexcept;

    /// The stored token, as it is when the actor's turn comes.
    platform::Awaitable<std::optional<platform::SecretString>> token() const;

    /// A builder for the stored token, as it is when the actor's turn comes.
    platform::Awaitable<AccountRequestBuilder> requestBuilder() const;

    /// Keeps the token that authorises later calls.
    platform::Awaitable<void> authenticate(platform::SecretString token);
    platform::Awaitable<void> deauthenticate();

    /// Mails a one-time code.
    platform::Awaitable<void> requestOneTimeCode(platform::SecretString email);

    /// Exchanges a mailed code for a session token, the text of an `AccountToken`. With
    /// `authenticated`, for the account of the stored token.
    platform::Awaitable<platform::SecretString> signIn(platform::SecretString email,
                                                       platform::SecretString oneTimeCode,
                                                       bool authenticated);

    /// Ends the session of `token`, which need not be the stored one.
    platform::Awaitable<void> signOut(platform::SecretString token);

    /// The account information of the stored token's session, the text of an `AccountInfo`.
    platform::Awaitable<platform::SecretString> info();

    /// Deletes the account of `token`, which need not be the stored one.
    platform::Awaitable<void> deleteAccount(platform::SecretString token);

    platform::Awaitable<void> requestNewsletter();
    platform::Awaitable<void> consentToTerms(std::string revision, std::string language);

private:
    struct State;

    platform::Actor actor_;
    std::shared_ptr<State> state_;
};

}  // namespace tessera
