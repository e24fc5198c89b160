#include "tests/soak/Child.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/SecretServiceForTest.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <sys/wait.h>
#include <chrono>
#include <functional>
#include <iostream>

namespace soak
{
namespace
{

using platform::KeychainStatus;
using Clock = std::chrono::steady_clock;

// A writer that says nothing for so long hangs.
constexpr int patience = 20'000;

/// What a writer tells before each step and after it.
struct Record
{
    Step step;
    bool ended = false;
    KeychainStatus status = KeychainStatus::success;
};

/// Lets a writer change a store, kills at a random instant, and compares what the store holds then
/// with what the writer was told. One object goes on with one store for many rounds.
class Kills
{
public:
    Kills(const char* name, const Settings& settings)
        : rounds(settings.countOr(2000)), random(settings.seed), report(name, rounds, settings.seed)
    {}

    /// From here on, another store, which is empty.
    void startAnew(Place place)
    {
        place_ = std::move(place);
        expectation = Expectation(place_);
        ++stores_;
    }

    /// One round: `kill` is called at the random instant, and must lead to the writer's end, unless
    /// it may make a step fail instead. False when something was wrong; the store is of no further
    /// use then.
    bool round(bool mayFailSteps, const std::function<void(Child&)>& kill)
    {
        fault_.clear();
        stepsInRound_ = 0;
        mayFailSteps_ = mayFailSteps;
        std::vector<std::string> options{"--seed", std::to_string(random.any()), "--first",
                                         std::to_string(number_ + 1)};
        if (mayFailSteps)
            options.push_back("--quiet");
        Child writer(place_.command("writer", std::move(options)));
        waitForTheInstant(writer);
        kill(writer);

        while (const auto record = hear<Record>(writer.channel(), patience))
            take(*record);
        const auto end = writer.wait();
        const bool wasKilled = WIFSIGNALED(end) && WTERMSIG(end) == SIGKILL;
        if (!wasKilled && !(mayFailSteps && WIFEXITED(end)) && fault_.empty())
            fault_ = "the writer ended by itself: " + shownEnd(end);
        count();

        const auto wrong = expectation.checkAnew(place_);
        if (fault_.empty())
            fault_ = wrong;
        report.judged(fault_, "round " + std::to_string(report.cases()));
        return fault_.empty();
    }

    /// How often the kill fell into a step, between two, and before the first.
    std::string detail() const
    {
        return std::to_string(steps_) + " steps in " + std::to_string(stores_) +
               " stores; the kill fell into a step " + std::to_string(inStep_) +
               " times, between steps " + std::to_string(between_) + ", before the first " +
               std::to_string(beforeFirst_);
    }

    const std::uint64_t rounds;
    Random random;
    Report report;
    Expectation expectation;

private:
    /// Either some time after the start, which hits the start of the process and the first opening
    /// of the store, or some time after a step, which hits any place in one.
    void waitForTheInstant(Child& writer)
    {
        const bool isEarly = random.oneIn(3);
        const auto wanted = isEarly ? 0 : 1 + random.below(30);
        for (std::uint64_t seen = 0; seen < wanted; ++seen)
        {
            const auto record = hear<Record>(writer.channel(), patience);
            if (!record)
                return;
            take(*record);
        }
        // Sleeping wakes late by more than a step takes.
        const auto span = std::chrono::microseconds(random.below(isEarly ? 30'000 : 1'500));
        for (const auto end = Clock::now() + span; Clock::now() < end;)
            if (const auto record = isEarly ? hear<Record>(writer.channel(), 0) : std::nullopt)
                take(*record);
    }

    void take(const Record& record)
    {
        number_ = record.step.number;
        if (!record.ended)
            return expectation.began(record.step);
        ++stepsInRound_;
        // A step that failed because of the kill is one that is under way for ever.
        if (!isAnswer(record.status) && mayFailSteps_)
            return;
        const auto wrong = expectation.acknowledged(record.step, record.status);
        if (fault_.empty())
            fault_ = wrong;
    }

    void count()
    {
        steps_ += stepsInRound_;
        if (expectation.underWay())
            ++inStep_;
        else
            ++(stepsInRound_ == 0 ? beforeFirst_ : between_);
    }

    Place place_;
    bool mayFailSteps_ = false;
    std::string fault_;

    std::uint64_t number_ = 0;
    std::uint64_t stepsInRound_ = 0;
    std::uint64_t steps_ = 0;
    std::uint64_t inStep_ = 0;
    std::uint64_t beforeFirst_ = 0;
    std::uint64_t between_ = 0;
    std::uint64_t stores_ = 0;
};

/// Who is killed in a round over a Secret Service.
enum class Victim
{
    writer,
    /// The writer learns of it.
    daemon,
    both,
};

/// A store that was there before the daemon was killed finds the new one with its next call.
bool survives(Store& store, Kills& kills)
{
    const auto wrong = kills.expectation.checkAnswers(store);
    const auto status = store.all().status;
    if (wrong.empty() && status == KeychainStatus::success)
        return true;
    kills.report.failed("a store that outlived the daemon: " + wrong + " " + shown(status) + " " +
                        store.diagnostics());
    return false;
}

}  // namespace

int runKills(const Settings& settings)
{
    Kills kills("kills", settings);
    std::optional<TemporaryFolder> folder;
    for (std::uint64_t round = 0; round < kills.rounds; ++round)
    {
        // First starts are the rarer thing in life and the harder one to get right.
        if (!folder || kills.random.oneIn(6))
        {
            Place place{.folder = folder.emplace().path() / "store"};
            if (kills.random.oneIn(2))
                place.passphrase = 0;
            kills.startAnew(std::move(place));
        }
        if (!kills.round(false, [](Child& writer) { writer.signal(SIGKILL); }))
            folder.reset();
    }
    return kills.report.close(kills.detail());
}

int runServiceKills(const Settings& settings)
{
    Kills kills("service-kills", settings);
    std::unique_ptr<PrivateSecretService> service;
    std::unique_ptr<Store> staying;
    std::uint64_t daemons = 0;
    for (std::uint64_t round = 0; round < kills.rounds; ++round)
    {
        if (!service || kills.random.oneIn(15))
        {
            staying.reset();
            service = std::make_unique<PrivateSecretService>();
            const Place place{.folder = service->lockFolder(), .busAddress = service->busAddress()};
            kills.startAnew(place);
            staying = std::make_unique<Store>(place);
        }
        const auto victim = static_cast<Victim>(kills.random.below(3));
        const auto kill = [&](Child& writer)
        {
            if (victim != Victim::daemon)
                writer.signal(SIGKILL);
            if (victim == Victim::writer)
                return;
            ++daemons;
            service->restart();
            // One that was between two steps goes on with the new daemon, as it should.
            writer.signal(SIGKILL);
        };
        if (kills.round(victim != Victim::writer, kill) && survives(*staying, kills))
            continue;
        staying.reset();
        service.reset();
    }
    return kills.report.close(kills.detail() + "; the daemon was killed " +
                              std::to_string(daemons) + " times");
}

/// Changes the store until it is killed or a step fails, and tells of each step before and after.
int beWriter(const Settings& settings)
{
    Random random(settings.seed);
    Store store(settings.place);
    for (auto number = settings.first;; ++number)
    {
        auto step = anyStep(random, number, settings.place.passphrase.has_value());
        // The passphrase of a store without a first item cannot be changed.
        if (number == settings.first)
            step.kind = Step::Kind::put;
        Record record{.step = step};
        if (!tell(STDOUT_FILENO, record))
            return 3;
        record.ended = true;
        record.status = carryOut(step, store);
        if (!tell(STDOUT_FILENO, record))
            return 3;
        if (isAnswer(record.status))
            continue;
        if (!settings.isQuiet)
            std::cerr << shown(step) << ": " << shown(record.status) << ": " << store.diagnostics()
                      << std::endl;
        return 3;
    }
}

}  // namespace soak
