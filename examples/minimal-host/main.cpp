// The least that a program needs to sign its user in, once, and to show who that is.
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
#include <Tessera/Session/Account.hpp>

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
platform::Awaitable<AccountState> signIn(Account* account, SecretString email)
{
    co_await account->requestOneTimeCode(email);
    std::cout << "The server has mailed a code. Code: " << std::flush;
    std::string code;
    std::getline(std::cin, code);
    co_return co_await account->signIn(email, SecretString(code));
}

void show(const AccountState& state)
{
    if (const auto* profile = state.get<AccountProfile>())
        std::cout << "Signed in as user " << profile->info().user << ".\n";
    else if (const auto* pending = state.get<AccountPendingProfile>())
        std::cout << "Signed in. " << pending->infoErrorMessage.value_or("") << "\n";
    else if (state.get<AccountState::SignedOut>())
        std::cout << "Signed out.\n";
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
        auto loop = std::make_shared<platform::RunLoop>();
        auto services = platform::systemServices();
        services.mainActor = loop;
        services.program.identifier = "com.example.editor";
        platform::replaceServices(services);
        if (development)
            services.urlSession = std::make_shared<platform::CurlURLSession>(
                platform::CurlURLSession::Configuration{.trustedAuthority = contentOf(argv[4])});

        Account account(
            development ? developmentServer(argv[2], argv[3]) : AccountEnvironment::directPreview(),
            client, services);
        const auto subscription = account.statePublisher().subscribe(show);
        account.applicationWillFinishLaunching();
        loop->runUntil(
            [&account]
            { return !account.state().get<AccountState::Loading>() || account.diagnostic(); });
        if (account.diagnostic())
            std::cout << account.diagnostic()->message << "\n";
        if (account.state().get<AccountState::SignedOut>())
            platform::runToEnd(loop, signIn(&account, SecretString(argv[1])));
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << platform::describe(error) << "\n";
        return 1;
    }
}
