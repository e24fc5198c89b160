#pragma once

#include "tests/simulation/Announcements.hpp"
#include "tests/simulation/Host.hpp"
#include "tests/simulation/SimulatedClock.hpp"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace simulation
{

struct SeedResult
{
    std::uint64_t seed = 0;
    int steps = 0;
    /// What was wrong first, if anything was.
    std::optional<std::string> complaint;
};

/// Two programs of one user, their machine and their server, in the order of events that a seed
/// chooses.
class World
{
public:
    World(std::uint64_t seed, bool isTraced);

    SeedResult run();

private:
    struct Choice
    {
        std::uint64_t weight;
        std::function<void()> make;
    };
    /// How likely things are in this seed.
    struct Temper
    {
        std::uint64_t work, calls, faults, news, cancels, releases;
        bool isServerGood;
    };

    void addPrograms();
    void fillStore();
    Host& addHost(std::size_t program);
    platform::Services servicesOf(int host, const std::shared_ptr<WatchedItems>& items);

    void step();
    void addWork(std::vector<Choice>& choices);
    void addWorldsDoing(std::vector<Choice>& choices);
    void addHostsDoing(std::vector<Choice>& choices, std::size_t program);

    void runHead(StepQueue& queue);
    void runAll();
    void answer(Transfer& transfer, bool isGood);
    void misbehave(Transfer& transfer);
    void tell(int host, Announcements::Delivery delivery);
    void flood(int host);
    void failKeychain(Host& host);
    void call(Host& host);
    void damageStore();
    void renew(std::size_t program);
    void judgeStep();

    void comeToRest();
    void healAndJudge();

    soak::Random random_;
    Trace trace_;
    SeedResult result_;
    Temper temper_;
    SimulatedClock clock_;
    Judge judge_{trace_};
    AccountServer server_;
    // Before the hosts: what they leave in the queues still uses these.
    Network network_{[this](Request& request) { judge_.requested(request); }};
    Announcements announcements_{[this](int host) { judge_.announced(host); }};
    std::shared_ptr<MemoryItemStore> items_ = std::make_shared<MemoryItemStore>();
    StepExecutor executor_;
    std::array<Program, clientCount> programs_;
    std::vector<std::unique_ptr<Host>> hosts_;
    /// The host that each program has now.
    std::array<Host*, clientCount> current_{};
};

}  // namespace simulation
