// The least that a program needs to sign its user in and to show who that is.
//
//     minimal-host EMAIL
//         at the preview server that the library was built for
//     minimal-host EMAIL ENDPOINT KEY.pem AUTHORITY.pem
//         at a development server, see its documentation
//
// The code that the server mails is read from standard input.

#include <Platform/Concurrency/RunLoop.hpp>
#include <Platform/Networking/CurlURLSession.hpp>
#include <Platform/Services/Services.hpp>
#include <Tessera/API/AccountService.hpp>
#include <Tessera/Model/AccountError.hpp>
#include <Tessera/Model/AccountProfile.hpp>
#include <Tessera/Tokens/JWTDecoder.hpp>

#include <fstream>
#include <iostream>
#include <iterator>

using namespace tessera;
using platform::SecretString;

namespace
{

std::string contentOf(const char* file)
{
    std::ifstream in(file);
    std::string content{std::istreambuf_iterator<char>(in), {}};
    if (!in)
        throw std::runtime_error(std::string("Cannot read ") + file + ".");
    while (content.ends_with('\n'))
        content.pop_back();
    return content;
}

AccountEnvironment developmentServer(const char* endpoint, const char* keyFile)
{
    const auto url = platform::URL::parse(endpoint);
    if (!url)
        throw std::runtime_error(std::string(endpoint) + " is not an address.");
    auto environment = AccountEnvironment::directPreview();
    environment.server = AccountEnvironment::Server::local;
    environment.endpointURL = environment.accountURL = environment.marketingURL = *url;
    environment.jwtPublicKey = {JWTPublicKeyAlgorithm::RS256, contentOf(keyFile)};
    return environment;
}

/// A coroutine of the host's own, on its main thread. A desktop program asks for the code in a
/// window; reading it from the terminal is all that blocks here.
platform::Awaitable<AccountProfile> signIn(AccountEnvironment environment, AccountClient client,
                                           std::shared_ptr<platform::URLSession> session,
                                           std::string email)
{
    AccountService service(environment, client, session);
    co_await service.requestOneTimeCode(SecretString(email));

    std::cout << "The server has mailed a code. Code: " << std::flush;
    std::string code;
    std::getline(std::cin, code);
    auto token = co_await service.signIn(SecretString(email), SecretString(code), false);
    co_await service.authenticate(token);
    auto info = co_await service.info();

    // What the server says counts only when its signature, and the audience, are right.
    JWTDecoder decoder;
    decoder.setSignatureVerificationStrategy(environment.jwtPublicKey);
    AccountProfile profile{decoder.decode<AccountToken>(token.bytes()),
                           decoder.decode<AccountInfo>(info.bytes()), AccountProfileSource::remote};
    if (profile.info().audience != client.audience())
        throw AccountError(AccountError::audienceMismatch);
    co_return profile;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 5)
    {
        std::cerr << "usage: minimal-host EMAIL [ENDPOINT KEY.pem AUTHORITY.pem]\n";
        return 2;
    }
    try
    {
        AccountClient client;
        client.identifier = "editor";
        client.localizedName = client.localizedShortName = "Editor";
        client.localizedKeychainIdentifier = "Editor Account";
        client.version = "1.0";
        client.device = AccountDevice::current();

        const bool development = argc == 5;
        auto session = platform::services().urlSession;
        if (development)
            session = std::make_shared<platform::CurlURLSession>(
                platform::CurlURLSession::Configuration{.trustedAuthority = contentOf(argv[4])});
        const auto environment =
            development ? developmentServer(argv[2], argv[3]) : AccountEnvironment::directPreview();

        std::cout << client.localizedName << " " << client.version << ", "
                  << localizedTitle(client.releaseChannel) << "\n";
        auto loop = std::make_shared<platform::RunLoop>();
        const auto profile =
            platform::runToEnd(loop, signIn(environment, client, session, argv[1]));

        std::cout << "Signed in as user " << profile.info().user << ", session "
                  << profile.tokenJWT.payload.session << ".\n";
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << platform::describe(error) << "\n";
        return 1;
    }
}
