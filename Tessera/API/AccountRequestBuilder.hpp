#pragma once

#include "NetTasks/HTTPMethod.hpp"
#include "Platform/Networking/URLRequest.hpp"
#include "Platform/Security/SecretBytes.hpp"
#include "Tessera/Model/AccountClient.hpp"
#include "Tessera/Model/AccountEnvironment.hpp"
#include "Tessera/Tokens/CaseError.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessera
{

enum class AccountRequestBuilderErrorCase
{
    /// The path cannot be resolved against the environment's address.
    malformedURL,
    /// The operation needs a session token, and there is none.
    missingCredentials
};

ErrorText errorText(AccountRequestBuilderErrorCase error);

class AccountRequestBuilderError final : public CaseError<AccountRequestBuilderErrorCase>
{
public:
    using enum AccountRequestBuilderErrorCase;
    using CaseError::CaseError;
};

/// Turns the operations of the account API into HTTP requests. It sends nothing.
///
/// Every operation throws `AccountRequestBuilderError`, and `platform::EncodingError` for a body
/// that JSON cannot express. Made for one call: one thread at a time.
class AccountRequestBuilder
{
public:
    /// `version` is the first part of every path: "v2". `token` is the session token.
    AccountRequestBuilder(AccountEnvironment environment, AccountClient client, std::string version,
                          std::optional<platform::SecretString> token);

    const AccountEnvironment& environment() const noexcept { return environment_; }
    const AccountClient& client() const noexcept { return client_; }
    const std::string& version() const noexcept { return version_; }
    const std::optional<platform::SecretString>& token() const noexcept { return token_; }

    /// Asks the server to mail a one-time code.
    platform::URLRequest oneTimeCodeRequest(platform::SecretString email) const;

    /// Exchanges the code for a session token. With `authenticated`, on behalf of the session that
    /// there is: the server then attaches the address to that account.
    platform::URLRequest signInRequest(platform::SecretString email,
                                       platform::SecretString oneTimeCode,
                                       bool authenticated) const;

    platform::URLRequest accountInfoRequest() const;
    platform::URLRequest signOutRequest() const;
    platform::URLRequest deleteAccountRequest() const;
    platform::URLRequest newsletterRequest() const;

    /// `language` is that of the text which the user accepted: `AccountTerms::preferredLanguage`.
    platform::URLRequest consentRequest(std::string revision, std::string language) const;

private:
    platform::URLRequest request(nettasks::HTTPMethod method, std::string_view pathStem) const;
    void authorize(platform::URLRequest& request) const;

    AccountEnvironment environment_;
    AccountClient client_;
    std::string version_;
    std::optional<platform::SecretString> token_;
};

/// The value of Accept-Language for the user's languages, best first:
/// "de-CH;q=1.0, en-US;q=0.8, fr;q=0.6". Weights fall by 0.2, and to 0.1 at the lowest.
std::string acceptLanguage(const std::vector<std::string>& languages);

}  // namespace tessera
