// A whole host: finds the session of its user or signs in with a mailed code, and shows each state.
#include <Platform/Concurrency/RunLoop.hpp>
#include <Tessera/Session/Account.hpp>
#include "DevelopmentServer.hpp"  // until your own server answers

constexpr const char* names[] = {"Loading", "Failed", "Pending", "Signed in", "Signed out"};

int main(int argc, char** argv)
try
{
    const DevelopmentServer server(argc, argv);
    const auto loop = std::make_shared<platform::RunLoop>();
    auto services = server.services();  // later: platform::systemServices()
    services.mainActor = loop;
    services.program.identifier = "com.example.editor";
    platform::replaceServices(services);
    const tessera::AccountClient editor{.identifier = "editor",
                                        .localizedKeychainIdentifier = "Editor Account",
                                        .version = "1.0",
                                        .device = tessera::AccountDevice::current()};
    tessera::Account account(server.environment(), editor);  // later: ::directProduction()
    const auto subscription = account.statePublisher().subscribe(
        [](const auto& state) { std::cout << names[state.value().index()] << std::endl; });
    account.applicationWillFinishLaunching();
    const auto loading = tessera::AccountState::loading();
    loop->runUntil([&] { return account.state() != loading || account.diagnostic(); });
    if (account.state() != tessera::AccountState::signedOut())
        return account.diagnostic() ? throw std::runtime_error(account.diagnostic()->message) : 0;
    const platform::SecretString email(argv[2]);
    platform::runToEnd(loop, account.requestOneTimeCode(email));
    std::string code;
    std::cout << "Code: ";
    std::getline(std::cin, code);
    platform::runToEnd(loop, account.signIn(email, platform::SecretString(code)));
}
catch (const std::exception& error)
{
    std::cerr << platform::describe(error) << "\n";
    return 1;
}
