#include "benchmarks/SessionHost.hpp"

#include <benchmark/benchmark.h>

#include <fstream>
#include <map>
#include <thread>

#include <malloc.h>
#include <unistd.h>

namespace
{

constexpr auto email = "anna@example.org";

/// Tells when a change is announced, and passes everything on.
class StampedKeyValueStore final : public platform::UbiquitousKeyValueStore
{
public:
    using Clock = std::chrono::steady_clock;

    explicit StampedKeyValueStore(std::shared_ptr<UbiquitousKeyValueStore> store)
        : store_(std::move(store))
    {}

    std::unique_ptr<Participant> join(const platform::Executor& executor, Handler handler) override
    {
        return std::make_unique<Stamped>(*this, store_->join(executor, std::move(handler)));
    }

    Clock::time_point announced;

private:
    class Stamped final : public Participant
    {
    public:
        Stamped(StampedKeyValueStore& of, std::unique_ptr<Participant> participant)
            : of_(of), participant_(std::move(participant))
        {}
        std::optional<std::string> string(std::string_view forKey) const override
        {
            return participant_->string(forKey);
        }
        void setString(std::string_view value, std::string_view forKey) override
        {
            participant_->setString(value, forKey);
        }
        bool synchronize() override
        {
            of_.announced = Clock::now();
            return participant_->synchronize();
        }

    private:
        StampedKeyValueStore& of_;
        const std::unique_ptr<Participant> participant_;
    };

    const std::shared_ptr<UbiquitousKeyValueStore> store_;
};

/// From the announcement of a sign-in and of a sign-out to the other program's new state; the
/// server takes no part in either. They follow each other without a pause.
void announcement(benchmark::State& state)
{
    const SessionUser user;
    SessionHost host(user, "editor"), other(user, "example");
    const auto stamps = std::make_shared<StampedKeyValueStore>(host.services.keyValueStore);
    host.services.keyValueStore = stamps;
    host.makeAccount();
    host.launchToEnd();
    other.launchToEnd();

    std::vector<double> took;
    auto subscription = other.account->statePublisher().subscribe(
        [&, held = std::optional<bool>()](const tessera::AccountState& now) mutable
        {
            const bool holds = now.token().has_value();
            if (held && *held != holds)
                took.push_back(std::chrono::duration<double, std::milli>(
                                   StampedKeyValueStore::Clock::now() - stamps->announced)
                                   .count());
            held = holds;
        });
    for ([[maybe_unused]] const auto iteration : state)
    {
        host.signIn(email);
        user.runUntil([&] { return other.account->state().token().has_value(); });
        host.account->signOut();
        user.runUntil([&] { return other.isSignedOut(); });
    }
    state.counters["ms"] = percentile(took, 50);
    state.counters["goal"] = 250;
    state.counters["ms at p99"] = percentile(took, 99);
    state.counters["goal at p99"] = 250;
}

/// How often each thread of the process has begun to wait.
std::map<std::string, long> waits()
{
    std::map<std::string, long> found;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;)
            if (word == "voluntary_ctxt_switches:")
                status >> found[task.path().filename()];
    }
    return found;
}

/// Waits of all threads but the caller's, while the main thread waits for work like that of a host.
double wakeUps(platform::RunLoop& loop, std::chrono::seconds span)
{
    double count = 0;
    std::thread observer(
        [&]
        {
            const auto own = std::to_string(::gettid());
            // The main thread begins to wait.
            std::this_thread::sleep_for(std::chrono::seconds(1));
            const auto before = waits();
            std::this_thread::sleep_for(span);
            for (const auto& [thread, number] : waits())
                if (thread != own)
                    count += static_cast<double>(number -
                                                 (before.contains(thread) ? before.at(thread) : 0));
            loop.stop();
        });
    loop.run();
    observer.join();
    return count;
}

void idle(benchmark::State& state)
{
    const auto threadsBefore = waits().size();
    const SessionUser user;
    SessionHost host(user);
    host.launchToEnd();
    host.signIn(email);
    user.runFor(std::chrono::seconds(2));
    const auto threads = waits().size() - threadsBefore;
    double count = 0;
    for ([[maybe_unused]] const auto iteration : state)
        count = wakeUps(*user.loop, std::chrono::seconds(60));
    state.counters["count"] = count;
    state.counters["goal"] = 0;
    state.counters["beside threads added"] = static_cast<double>(threads);
}

void idleThreads(benchmark::State& state)
{
    const auto threadsBefore = waits().size();
    const SessionUser user;
    SessionHost host(user);
    for ([[maybe_unused]] const auto iteration : state)
    {
        host.launchToEnd();
        host.signIn(email);
    }
    state.counters["count"] = static_cast<double>(waits().size() - threadsBefore);
    state.counters["goal"] = 3;
}

double residentKiB()
{
    ::malloc_trim(0);
    double size = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// Of accounts that are the same client under different names in the keychain.
void memory(benchmark::State& state)
{
    constexpr int warming = 4, measured = 64;
    const SessionUser user;
    SessionHost host(user);
    host.launchToEnd();
    host.signIn(email);
    std::vector<std::unique_ptr<tessera::Account>> accounts;
    const auto add = [&](int count)
    {
        for (int made = 0; made < count; ++made)
        {
            auto client = host.client;
            client.localizedKeychainIdentifier += std::to_string(accounts.size());
            accounts.push_back(
                std::make_unique<tessera::Account>(user.file.environment, client, host.services));
            auto& account = *accounts.back();
            account.applicationWillFinishLaunching();
            host.toEnd<void>(account.refresh(true));
            if (!account.state().get<tessera::AccountProfile>())
                throw std::runtime_error("an account is not signed in");
        }
        user.runFor(std::chrono::milliseconds(500));
    };
    for ([[maybe_unused]] const auto iteration : state)
    {
        add(warming);
        const auto before = residentKiB();
        add(measured);
        state.counters["KiB"] = (residentKiB() - before) / measured;
    }
    state.counters["goal"] = 64;
}

BENCHMARK(announcement)->Name("announcement")->Iterations(150)->Unit(benchmark::kMillisecond);
BENCHMARK(idle)->Name("idle-wake-ups")->Iterations(1);
BENCHMARK(idleThreads)->Name("idle-threads")->Iterations(1);
BENCHMARK(memory)->Name("account-memory")->Iterations(1);

}  // namespace
