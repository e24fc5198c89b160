#include "tests/Tessera/Session/SessionHost.hpp"

#include "Valet/Valet.hpp"

#include <gtest/gtest.h>

#include <algorithm>

using namespace tessera;

namespace
{

constexpr auto environmentName = "Session Test";
constexpr auto clientName = "Session Test Client";

std::string quoted(const std::string& text)
{
    return '"' + text + '"';
}

/// "/account", or "DELETE /account".
std::string nameOf(const platform::URLRequest& request)
{
    const auto path = request.url.string().substr(std::string("https://api.example.net/v2").size());
    return (request.method == "DELETE" ? "DELETE " : "") + path;
}

}  // namespace

std::string nameOf(const std::exception_ptr& error)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const std::exception& known)
    {
        return known.what();
    }
}

std::string text(const AccountState& state)
{
    if (const auto* pending = state.get<AccountPendingProfile>())
        return "pending:" + pending->tokenJWT.payload.user + (pending->infoErrorMessage ? "!" : "");
    if (const auto* profile = state.get<AccountProfile>())
        return "signedIn:" + profile->info().user +
               (profile->source == AccountProfileSource::local ? "/local" : "/remote");
    if (state.get<AccountState::Failed>())
        return "failed";
    return state.get<AccountState::Loading>() ? "loading" : "signedOut";
}

void Machine::settle()
{
    announcements.deliverAll();
    do
        ASSERT_LT(executor.drain(100'000), 100'000U);
    while (announcements.deliverAll());
}

void Machine::advance(double seconds)
{
    settle();
    clock->advance(static_cast<std::uint64_t>(seconds * 1e9));
    settle();
}

SessionHost::SessionHost(Machine& on, std::string identifier)
    : machine(on),
      main(machine.executor.addQueue("main")),
      background(machine.executor.addQueue("background")),
      storage(machine.executor.addQueue("storage")),
      environment(AccountEnvironment::directPreview()),
      executor_(platform::executorOf(main))
{
    auto program = platform::KeychainProgram{.identifier = identifier};
    keychain = std::make_shared<ScriptedKeychain>(std::make_shared<platform::StoreKeychain>(
        machine.items, [program] { return platform::KeychainSurroundings{program, {}}; }));
    services.clock = machine.clock;
    services.device = std::make_shared<FixedDevice>();
    services.urlSession = network;
    services.background = platform::executorOf(background);
    services.storage = platform::executorOf(storage);
    services.mainActor = main;
    services.keyValueStore = machine.announcements.device(0);
    services.keychain = keychain;
    environment.localizedKeychainIdentifier = environmentName;
    environment.jwtPublicKey = server().publicKey();
    environment.endpointURL = *platform::URL::parse("https://api.example.net/");
    client.identifier = std::move(identifier);
    client.localizedKeychainIdentifier = clientName;
    client.version = "1.0";
    launchAgain();
}

const TokenFactory& SessionHost::server()
{
    static const TokenFactory factory;
    return factory;
}

std::string SessionHost::token(const std::string& user, const std::string& session)
{
    return server().token(R"({"user":)" + quoted(user) + R"(,"session":)" + quoted(session) + "}");
}

std::string SessionHost::info(const std::string& user, const std::string& email,
                              const std::string& audience)
{
    const auto address = email.empty() ? std::string() : R"("email":)" + quoted(email) + ",";
    return server().token(
        R"({"iat":1700000000,"aud":)" + quoted(audience) + R"(,"user":)" + quoted(user) + "," +
        address + R"("uuid":"00000000-0000-0000-0000-0000000000)" + (user == "anna" ? "01" : "02") +
        R"(","terms":{"current_revision":"1","accepted_revision":"1","url":{}}})");
}

void SessionHost::launchAgain()
{
    release();
    onMainDo(
        [this]
        {
            account = std::make_unique<Account>(environment, client, services);
            subscription_ = account->statePublisher().subscribe(
                [this](const AccountState& state) { published.push_back(text(state)); });
        });
    published.clear();
    machine.settle();
}

void SessionHost::release()
{
    onMainDo([this] { account.reset(); });
}

void SessionHost::launch()
{
    onMainDo([this] { account->applicationWillFinishLaunching(); });
    machine.settle();
}

void SessionHost::activate()
{
    onMainDo([this] { account->applicationDidBecomeActive(); });
    machine.settle();
}

void SessionHost::signOut()
{
    onMainDo([this] { account->signOut(); });
    machine.settle();
}

platform::Awaitable<AccountState> SessionHost::callSignIn()
{
    return onMain(
        [this]
        {
            return account->signIn(platform::SecretString("anna@example.org"),
                                   platform::SecretString("123456"));
        });
}

std::shared_ptr<Call<AccountState>> SessionHost::signIn()
{
    return start<AccountState>(callSignIn());
}

std::shared_ptr<Call<void>> SessionHost::refresh(bool force)
{
    return start<void>(onMain([this, force] { return account->refresh(force); }));
}

std::vector<std::string> SessionHost::takeRequests()
{
    machine.settle();
    std::vector<std::string> paths;
    for (; taken_ < network->started.size(); ++taken_)
    {
        const auto& request = network->started[taken_]->request;
        paths.push_back(nameOf(request) + (request.header("Authorization") ? "*" : ""));
    }
    return paths;
}

void SessionHost::answer(const std::string& path, int status, const std::string& body)
{
    machine.settle();
    const auto open =
        std::ranges::find_if(network->started, [&](const auto& transfer)
                             { return !transfer->ended() && nameOf(transfer->request) == path; });
    ASSERT_NE(open, network->started.end()) << "no request for " << path;
    (*open)->answer(status, body);
    machine.settle();
}

void SessionHost::answerRefused(const std::string& path, const std::string& code)
{
    answer(path, 401, R"({"code":)" + quoted(code) + R"(,"message":"Refused."})");
}

void SessionHost::signInAs(const std::string& user)
{
    const auto call = signIn();
    answerSignIn(user);
    ASSERT_TRUE(call->succeeded()) << call->error();
    takeRequests();
    published.clear();
}

void SessionHost::answerSignIn(const std::string& user)
{
    answer("/auth", 200, token(user));
    answer("/account", 200, info(user));
}

std::string SessionHost::state() const
{
    return text(account->state());
}

std::optional<std::string> SessionHost::stored(const std::string& key) const
{
    for (const auto& [identity, item] : machine.items->items())
        if (identity.account == key)
            return std::string(platform::SecretString(item.data).view());
    return std::nullopt;
}

void SessionHost::store(const std::string& key, const std::string& value)
{
    const auto store = key == "Token"
                           ? valet::Valet::iCloudSharedGroupValetWithExplicitlySet(
                                 "group", "net.ostra.account", environmentName,
                                 valet::CloudAccessibility::afterFirstUnlock, keychain)
                           : valet::Valet::valetWithExplicitlySet(
                                 clientName, valet::Accessibility::afterFirstUnlock, keychain);
    store->setObject(bytesOf(value), key);
}
