#include "benchmarks/SessionHost.hpp"

#include <benchmark/benchmark.h>

namespace
{

constexpr auto email = "anna@example.org";
constexpr auto termsRevision = "2026-10-01";

/// Two programs of one user on one thread, each with a main actor of its own, so that their pieces
/// of work are told apart.
struct Pair
{
    SessionUser user;
    SessionHost host{user, "editor"};
    SessionHost other{user, "example"};
};

/// Measures the first host's longest stay on the main thread in each of many executions.
/// `prepare` is not measured; `run` returns when the operation and what it caused have ended.
void longestStay(benchmark::State& state, Pair& pair, const std::function<void()>& prepare,
                 const std::function<void()>& run)
{
    std::vector<double> wall, cpu;
    const auto once = [&]
    {
        prepare();
        pair.host.drain();
        pair.host.main->forget();
        run();
        pair.host.drain();
        return pair.host.main->longest();
    };
    for (int warming = 0; warming < 5; ++warming)
        once();
    for ([[maybe_unused]] const auto iteration : state)
    {
        const auto stay = once();
        wall.push_back(stay.wall * 1e3);
        cpu.push_back(stay.cpu * 1e3);
        state.SetIterationTime(stay.wall);
    }
    state.counters["ms"] = percentile(wall, 50);
    state.counters["goal"] = 1;
    state.counters["ms at p99"] = percentile(wall, 99);
    state.counters["goal at p99"] = 2;
    state.counters["beside CPU ms, p99"] = percentile(cpu, 99);
}

void launchBoth(Pair& pair)
{
    pair.host.launchToEnd();
    pair.other.launchToEnd();
}

void signedOutBoth(Pair& pair)
{
    pair.host.account->signOut();
    pair.user.runUntil([&] { return pair.host.isSignedOut() && pair.other.isSignedOut(); });
}

template <class T>
void call(Pair& pair, const std::function<platform::Awaitable<T>(tessera::Account&)>& operation)
{
    std::optional<platform::Awaitable<T>> work;
    pair.host.main->run([&] { work.emplace(operation(*pair.host.account)); });
    pair.host.toEnd<T>(*std::move(work));
}

void staySignIn(benchmark::State& state)
{
    Pair pair;
    launchBoth(pair);
    std::string code;
    longestStay(
        state, pair,
        [&]
        {
            signedOutBoth(pair);
            pair.host.toEnd<void>(
                pair.host.account->requestOneTimeCode(platform::SecretString(email)));
            code = pair.user.code(email);
        },
        [&]
        {
            call<tessera::AccountState>(pair,
                                        [&](tessera::Account& account)
                                        {
                                            return account.signIn(platform::SecretString(email),
                                                                  platform::SecretString(code));
                                        });
        });
}

void stayFollow(benchmark::State& state)
{
    Pair pair;
    launchBoth(pair);
    longestStay(
        state, pair,
        [&]
        {
            pair.other.account->signOut();
            pair.user.runUntil([&] { return pair.host.isSignedOut() && pair.other.isSignedOut(); });
            // The next read may not come sooner after the last.
            pair.user.runFor(std::chrono::milliseconds(110));
        },
        [&]
        {
            pair.other.signIn(email);
            pair.user.runUntil([&] { return pair.host.isSignedIn(); });
        });
}

/// For what a signed-in account does.
void staySignedIn(
    benchmark::State& state, const std::function<void(Pair&)>& run,
    const std::function<void(Pair&)>& prepare = [](Pair&) {})
{
    Pair pair;
    launchBoth(pair);
    pair.host.signIn(email);
    pair.user.runUntil([&] { return pair.other.isSignedIn(); });
    longestStay(state, pair, [&] { prepare(pair); }, [&] { run(pair); });
}

void refresh(Pair& pair)
{
    call<void>(pair, [](tessera::Account& account) { return account.refresh(true); });
}

/// One that finds the information an hour old would refresh besides, which has its own row.
void activate(Pair& pair)
{
    pair.host.main->run([&] { pair.host.account->applicationDidBecomeActive(); });
    pair.user.runFor(std::chrono::milliseconds(110));
}

void consent(Pair& pair)
{
    call<void>(pair, [](tessera::Account& account)
               { return account.consentToTerms(termsRevision, "en"); });
    // It goes on in the background.
    pair.host.toEnd<void>(pair.host.account->refresh(false));
}

void newsletter(Pair& pair)
{
    call<void>(pair, [](tessera::Account& account) { return account.requestNewsletter(); });
}

void authenticate(Pair& pair)
{
    auto token = pair.host.account->state().token();
    pair.host.main->run([&] { pair.host.account->authenticate(*std::move(token)); });
    pair.host.toEnd<void>(pair.host.account->refresh(true));
}

void stayDelete(benchmark::State& state)
{
    Pair pair;
    launchBoth(pair);
    longestStay(
        state, pair,
        [&]
        {
            pair.host.signIn(email);
            pair.user.runUntil([&] { return pair.other.isSignedIn(); });
        },
        [&]
        { call<void>(pair, [](tessera::Account& account) { return account.deleteAccount(); }); });
}

void stayRefresh(benchmark::State& state)
{
    staySignedIn(state, refresh);
}
void stayActivation(benchmark::State& state)
{
    staySignedIn(state, activate);
}
void stayConsent(benchmark::State& state)
{
    staySignedIn(state, consent);
}
void stayNewsletter(benchmark::State& state)
{
    bool consented = false;
    staySignedIn(state, newsletter,
                 [&](Pair& pair)
                 {
                     if (!std::exchange(consented, true))
                         consent(pair);
                 });
}
void stayAuthenticate(benchmark::State& state)
{
    staySignedIn(state, authenticate);
}

void configure(benchmark::internal::Benchmark* one)
{
    one->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(staySignIn)->Name("stay-sign-in")->Apply(configure);
BENCHMARK(stayRefresh)->Name("stay-refresh")->Apply(configure);
BENCHMARK(stayFollow)->Name("stay-follow")->Apply(configure);
BENCHMARK(stayActivation)->Name("stay-activation")->Apply(configure);
BENCHMARK(stayConsent)->Name("stay-consent")->Apply(configure);
BENCHMARK(stayNewsletter)->Name("stay-newsletter")->Apply(configure);
BENCHMARK(stayDelete)->Name("stay-delete")->Apply(configure);
BENCHMARK(stayAuthenticate)->Name("stay-authenticate")->Apply(configure);

}  // namespace
