#include "Platform/Services/Services.hpp"
#include "tests/simulation/MachineRows.hpp"
#include "tests/simulation/Texts.hpp"
#include "tests/simulation/World.hpp"
#include "tests/support/FixedDevice.hpp"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <new>
#include <span>

namespace
{

constexpr auto description =
    "Runs the account session in worlds that a seed has chosen, and looks after each step whether "
    "what must hold holds. Exit codes: 0 all passed, 1 a seed failed or a row of the state "
    "machine's table was not reached, 2 wrong use, 3 the run could not be carried out.";

constexpr std::uint64_t enoughForMostRows = 5000;
constexpr std::uint64_t enoughForAllRows = 50'000;
/// Reached in a few of ten thousand seeds.
constexpr auto rareRow = "activation, pending, completed: nothing";
constexpr std::uint64_t toldFailures = 20;
constexpr std::size_t rowLimit = 512;

struct Wish
{
    std::uint64_t first = 1;
    std::uint64_t count = 5000;
    std::uint64_t seed = 0;
    unsigned jobs = 1;
    bool isTraced = false;
    bool stopsAtFailure = false;
    bool showsRows = false;
};

/// What a process that runs seeds leaves behind, in memory that its parent sees.
struct Job
{
    std::uint64_t seed = 0;
    std::uint64_t passed = 0;
    std::uint64_t failed = 0;
    std::uint64_t steps = 0;
    std::array<std::uint64_t, rowLimit> rows{};
};

std::uint64_t currentSeed = 0;

/// A crash or a failed check of the product ends the process. Which seed it was must be told.
void tellSeed(int signal)
{
    dprintf(STDERR_FILENO, "simulation: FAILED: seed %llu ended with signal %d\n",
            static_cast<unsigned long long>(currentSeed), signal);
    _exit(1);
}

void useFixedServices()
{
    auto services = platform::systemServices();
    services.device = std::make_shared<FixedDevice>();
    services.clock = nullptr;
    platform::replaceServices(std::move(services));
}

/// Runs each `jobs`th seed, from the one after `job.seed` on, which it keeps.
void runSeeds(const Wish& wish, Job& job)
{
    for (;;)
    {
        job.seed += wish.jobs;
        if (job.seed >= wish.first + wish.count)
            return;
        currentSeed = job.seed;
        const auto result = simulation::runWorld(job.seed, wish.isTraced);
        job.steps += static_cast<std::uint64_t>(result.steps);
        ++(result.complaint ? job.failed : job.passed);
        if (result.complaint && job.failed <= toldFailures)
            std::cerr << "simulation: FAILED: seed " << job.seed << ": " << *result.complaint
                      << std::endl;
        if (result.complaint && wish.stopsAtFailure)
            job.seed = wish.first + wish.count;
        simulation::takeRows(job.rows);
    }
}

/// Each job in a process of its own, which is begun again behind a seed that ends it.
void runInProcesses(const Wish& wish, std::span<Job> jobs)
{
    std::map<pid_t, Job*> running;
    const auto begin = [&](Job& job)
    {
        if (const pid_t process = fork(); process != 0)
        {
            running[process] = &job;
            return;
        }
        runSeeds(wish, job);
        std::cout.flush();
        _exit(0);
    };
    for (auto& job : jobs)
        begin(job);
    while (!running.empty())
    {
        int status = 0;
        const auto ended = running.extract(wait(&status));
        if (ended.empty() || (WIFEXITED(status) && WEXITSTATUS(status) == 0))
            continue;
        auto& job = *ended.mapped();
        ++job.failed;
        if (!wish.stopsAtFailure && job.failed <= toldFailures)
            begin(job);
    }
}

bool judgeRows(const Wish& wish, const Job& sum)
{
    bool isComplete = true;
    for (std::size_t row = 0; row < simulation::rows().size(); ++row)
    {
        const auto& name = simulation::rows()[row];
        if (wish.showsRows)
            std::cout << "  " << sum.rows.at(row) << "  " << name << '\n';
        // Fewer seeds are not asked to reach all.
        const auto enough = name == rareRow ? enoughForAllRows : enoughForMostRows;
        if (sum.rows.at(row) > 0 || sum.passed < enough)
            continue;
        isComplete = false;
        std::cerr << "simulation: FAILED: never reached: " << name << '\n';
    }
    return isComplete;
}

int run(const Wish& wish)
{
    const auto size = sizeof(Job) * wish.jobs;
    void* shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED || simulation::rows().size() > rowLimit)
    {
        std::cerr << "simulation: no memory for the counts" << std::endl;
        return 3;
    }
    const std::span jobs(new (shared) Job[wish.jobs], wish.jobs);
    for (unsigned job = 0; job < wish.jobs; ++job)
        jobs[job].seed = wish.first + job - wish.jobs;
    if (wish.jobs == 1)
        runSeeds(wish, jobs.front());
    else
        runInProcesses(wish, jobs);

    Job sum;
    for (const auto& job : jobs)
    {
        sum.passed += job.passed;
        sum.failed += job.failed;
        sum.steps += job.steps;
        for (std::size_t row = 0; row < rowLimit; ++row)
            sum.rows[row] += job.rows[row];
    }
    const bool isComplete = judgeRows(wish, sum);
    std::cout << "simulation: " << sum.passed << " passed, " << sum.failed << " failed, "
              << sum.steps << " steps" << std::endl;
    return sum.failed == 0 && sum.passed > 0 && isComplete ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments)
{
    CLI::App app(description, "tessera-simulation");
    Wish wish;
    app.add_option("--count", wish.count, "How many seeds")->capture_default_str();
    app.add_option("--first", wish.first, "The first of them")->capture_default_str();
    app.add_option("--seed", wish.seed, "This seed alone");
    app.add_option("--jobs", wish.jobs, "How many processes share them")->check(CLI::Range(1, 64));
    app.add_flag("--trace", wish.isTraced, "Print what happens");
    app.add_flag("--stop", wish.stopsAtFailure, "End with the first seed that fails");
    app.add_flag("--rows", wish.showsRows, "Print how often each row of the table was reached");
    try
    {
        app.parse(count, arguments);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (wish.seed != 0)
    {
        wish.first = wish.seed;
        wish.count = 1;
    }
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL})
        std::signal(signal, tellSeed);
    useFixedServices();
    simulation::Texts::shared();
    return run(wish);
}
