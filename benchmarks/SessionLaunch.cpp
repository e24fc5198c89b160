#include "benchmarks/BareVerification.hpp"
#include "benchmarks/PairedBlocks.hpp"
#include "benchmarks/SessionHost.hpp"

#include "Valet/Valet.hpp"

namespace
{

using platform::SecretBytes;

/// The two items of a session, and Valet's own way to them.
class Items
{
public:
    explicit Items(const SessionHost& host)
        : environment_(valet::Valet::iCloudSharedGroupValetWithExplicitlySet(
              valet::SharedGroupIdentifier::make("group", "net.ostra.account").value(),
              valet::Identifier::make(host.user.file.environment.localizedKeychainIdentifier)
                  .value(),
              valet::CloudAccessibility::afterFirstUnlock, host.services.keychain)),
          client_(valet::Valet::valetWithExplicitlySet(
              valet::Identifier::make(host.client.localizedKeychainIdentifier).value(),
              valet::Accessibility::afterFirstUnlock, host.services.keychain))
    {}

    SecretBytes token() const { return environment_->object("Token"); }
    SecretBytes info() const { return client_->object("Info"); }
    void write(const SecretBytes& token, const SecretBytes& info)
    {
        environment_->setObject(token.view(), "Token");
        client_->setObject(info.view(), "Info");
    }
    void remove()
    {
        environment_->removeObject("Token");
        client_->removeObject("Info");
    }

private:
    const std::shared_ptr<valet::Valet> environment_;
    const std::shared_ptr<valet::Valet> client_;
};

std::string_view text(const SecretBytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.view().data()), bytes.size()};
}

/// From the call to the state, against two reads and two verifications on one thread. `isFirst`:
/// the program has not used its keychain yet, so that both open it.
void compareLaunch(benchmark::State& state, bool isFirst)
{
    const SessionUser user;
    SessionHost host(user);
    host.signIn("anna@example.org");
    const Items items(host);
    const auto token = items.token(), info = items.info();
    const auto& key = user.file.environment.jwtPublicKey.value;
    BareVerification bareToken(text(token), key), bareInfo(text(info), key);

    const auto prepare = [&](std::size_t)
    {
        host.makeAccount();
        host.drain();
        if (isFirst)
            host.closeKeychain();
    };
    const auto launched = [&](std::size_t)
    {
        host.account->applicationWillFinishLaunching();
        user.loop->runUntil([&] { return host.isSignedIn(); });
    };
    const auto bare = [&](std::size_t)
    {
        auto readToken = items.token();
        auto readInfo = items.info();
        benchmark::DoNotOptimize(readToken);
        benchmark::DoNotOptimize(readInfo);
        if (!bareToken.verify() || !bareInfo.verify())
            throw std::runtime_error("a stored token does not verify");
    };
    compareInBlocks(state, {.goal = 1.5,
                            .measured = {"launch", 1, launched, prepare},
                            .limit = {"two reads, two verifications", 1, bare, prepare},
                            .waits = true});
}

void launch(benchmark::State& state)
{
    compareLaunch(state, false);
}

void launchFirst(benchmark::State& state)
{
    compareLaunch(state, true);
}

/// All pieces of work of a launch on the main thread together.
void launchOnMain(benchmark::State& state)
{
    const SessionUser user;
    SessionHost host(user);
    host.signIn("anna@example.org");
    std::vector<double> wall, longest;
    for ([[maybe_unused]] const auto iteration : state)
    {
        host.makeAccount();
        host.drain();
        host.main->forget();
        host.main->run([&] { host.account->applicationWillFinishLaunching(); });
        user.loop->runUntil([&] { return host.isSignedIn(); });
        wall.push_back(host.main->wallInAll() * 1e3);
        longest.push_back(host.main->longest().wall * 1e3);
        state.SetIterationTime(host.main->wallInAll());
    }
    state.counters["ms"] = percentile(wall, 50);
    state.counters["ms at p99"] = percentile(wall, 99);
    state.counters["goal"] = 1;
    state.counters["beside longest piece ms, p99"] = percentile(longest, 99);
}

/// The call, against two removals.
void signOut(benchmark::State& state)
{
    const SessionUser user;
    SessionHost host(user);
    host.signIn("anna@example.org");
    Items items(host);
    const auto token = items.token(), info = items.info();

    const auto prepare = [&](std::size_t)
    {
        host.account.reset();
        host.drain();
        items.write(token, info);
        host.makeAccount();
        host.launchToEnd();
        host.drain();
    };
    const auto signedOut = [&](std::size_t) { host.account->signOut(); };
    const auto removed = [&](std::size_t) { items.remove(); };
    const auto participant = host.services.keyValueStore->join(
        platform::executorOf(host.main), [](const platform::ExternalKeyValueChange&) {});
    const auto announced = [&](std::size_t)
    {
        participant->setString("1790000000.000", "benchmark");
        participant->synchronize();
    };
    const auto tokenRead = [&](std::size_t)
    {
        auto read = items.token();
        benchmark::DoNotOptimize(read);
    };
    compareInBlocks(state, {.goal = 1.3,
                            .measured = {"signOut", 1, signedOut, prepare},
                            .limit = {"two removals", 1, removed, prepare},
                            .beside = {{"announcement", 1, announced, prepare},
                                       {"reading the token", 1, tokenRead, prepare}},
                            .waits = true});
}

BENCHMARK(launch)->Name("launch")->Iterations(1000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(launchFirst)
    ->Name("launch-first")
    ->Iterations(500)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(launchOnMain)
    ->Name("launch-main")
    ->Iterations(1000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(signOut)
    ->Name("sign-out")
    ->Iterations(500)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
