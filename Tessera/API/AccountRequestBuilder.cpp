#include "Tessera/API/AccountRequestBuilder.hpp"

#include "Platform/Coding/JSONEncoder.hpp"
#include "Platform/Security/SecretCoding.hpp"
#include "Platform/Services/Services.hpp"

#include <boost/describe/class.hpp>

#include <algorithm>
#include <array>

namespace tessera
{

ErrorText errorText(AccountRequestBuilderErrorCase error)
{
    return error == AccountRequestBuilderErrorCase::malformedURL
               ? ErrorText{"AccountRequestBuilderError.malformedURL", "Malformed_URL_Error"}
               : ErrorText{"AccountRequestBuilderError.missingCredentials",
                           "Missing_Credentials_Error"};
}

namespace
{

using nettasks::HTTPMethod;
using platform::SecretString;
using platform::URLRequest;

struct OneTimeCodeRequest
{
    SecretString email;
};
BOOST_DESCRIBE_STRUCT(OneTimeCodeRequest, (), (email))

struct OneTimeCodeSignInRequest
{
    SecretString email;
    SecretString oneTimeCode;
};
BOOST_DESCRIBE_STRUCT(OneTimeCodeSignInRequest, (), (email, oneTimeCode))

struct ConsentRequest
{
    std::string revision;
    std::string language;
};
BOOST_DESCRIBE_STRUCT(ConsentRequest, (), (revision, language))

template <class Body>
platform::SecretBytes encoded(const Body& body)
{
    SecretString json;
    platform::JSONEncoder().encode(body, json);
    return platform::SecretBytes(json.bytes());
}

void acceptJWT(URLRequest& request)
{
    request.setHeader("Accept", "application/jwt");
}

}  // namespace

AccountRequestBuilder::AccountRequestBuilder(AccountEnvironment environment, AccountClient client,
                                             std::string version, std::optional<SecretString> token)
    : environment_(std::move(environment)),
      client_(std::move(client)),
      version_(std::move(version)),
      token_(std::move(token))
{}

URLRequest AccountRequestBuilder::oneTimeCodeRequest(SecretString email) const
{
    auto made = request(HTTPMethod::post, "/auth/one-time-code");
    made.body = encoded(OneTimeCodeRequest{std::move(email)});
    return made;
}

URLRequest AccountRequestBuilder::signInRequest(SecretString email, SecretString oneTimeCode,
                                                bool authenticated) const
{
    auto made = request(HTTPMethod::post, "/auth");
    made.body = encoded(OneTimeCodeSignInRequest{std::move(email), std::move(oneTimeCode)});
    acceptJWT(made);
    if (authenticated)
        authorize(made);
    return made;
}

URLRequest AccountRequestBuilder::accountInfoRequest() const
{
    auto made = request(HTTPMethod::get, "/account");
    acceptJWT(made);
    authorize(made);
    return made;
}

URLRequest AccountRequestBuilder::signOutRequest() const
{
    auto made = request(HTTPMethod::delete_, "/auth");
    authorize(made);
    return made;
}

URLRequest AccountRequestBuilder::deleteAccountRequest() const
{
    auto made = request(HTTPMethod::delete_, "/account");
    authorize(made);
    return made;
}

URLRequest AccountRequestBuilder::newsletterRequest() const
{
    auto made = request(HTTPMethod::post, "/account/newsletter");
    authorize(made);
    return made;
}

URLRequest AccountRequestBuilder::consentRequest(std::string revision, std::string language) const
{
    auto made = request(HTTPMethod::post, "/legal/terms/consent");
    made.body = encoded(ConsentRequest{std::move(revision), std::move(language)});
    authorize(made);
    return made;
}

URLRequest AccountRequestBuilder::request(HTTPMethod method, std::string_view pathStem) const
{
    const auto url = environment_.endpointURL.resolved("/" + version_ + std::string(pathStem));
    if (!url)
        throw AccountRequestBuilderError(AccountRequestBuilderError::malformedURL);
    URLRequest made{
        .url = *url, .method = nettasks::httpMethodName(method), .headers = {}, .body = {}};
    made.setHeader("Content-Type", "application/json");
    made.setHeader("User-Agent", client_.userAgent(environment_.distribution));
    made.setHeader("Accept-Language",
                   acceptLanguage(platform::services().device->preferredLanguages()));
    return made;
}

void AccountRequestBuilder::authorize(URLRequest& request) const
{
    if (!token_)
        throw AccountRequestBuilderError(AccountRequestBuilderError::missingCredentials);
    SecretString credentials("Bearer ");
    credentials.append(token_->view());
    request.addHeader("Authorization", std::move(credentials));
}

std::string acceptLanguage(const std::vector<std::string>& languages)
{
    // Written out, because formatting a fraction would follow the host's locale.
    constexpr std::array<std::string_view, 6> weights{"1.0", "0.8", "0.6", "0.4", "0.2", "0.1"};
    std::string value;
    for (std::size_t i = 0; i < languages.size(); ++i)
    {
        if (i > 0)
            value += ", ";
        value += languages[i] + ";q=";
        value += weights[std::min(i, weights.size() - 1)];
    }
    return value;
}

}  // namespace tessera
