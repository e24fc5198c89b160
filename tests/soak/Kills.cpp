#include "tests/soak/Kills.hpp"

#include "tests/soak/Journal.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <sys/wait.h>
#include <time.h>
#include <chrono>
#include <csignal>
#include <memory>

namespace soak
{

using platform::KeychainStatus;

namespace
{

using Clock = std::chrono::steady_clock;

// A writer that says nothing for so long hangs.
constexpr int patience = 20'000;

/// Sleeping wakes late by more than a step takes.
void spin(std::chrono::microseconds span)
{
    for (const auto end = Clock::now() + span; Clock::now() < end;)
    {
    }
}

}  // namespace

void Kills::startAnew(Place place)
{
    place_ = std::move(place);
    expectation_ = {};
    if (place_.passphrase)
        expectation_.setPassphrase(*place_.passphrase);
    if (place_.isSecretService())
        expectation_.expectPartialRemovals();
    ++stores_;
}

bool Kills::round(const std::function<void(Child&)>& kill)
{
    fault_.clear();
    stepsInRound_ = 0;
    auto arguments = place_.arguments();
    arguments.insert(arguments.begin(), {"writer", "--seed", std::to_string(random_.any()),
                                         "--first", std::to_string(number_ + 1)});
    if (allowsFailedSteps_)
        arguments.push_back("--quiet");
    Child writer(arguments);
    waitForTheInstant(writer);
    kill(writer);

    JournalReader rest(writer.output());
    while (const auto record = rest.next(patience))
        take(*record);
    const auto end = writer.wait();
    const bool wasKilled = WIFSIGNALED(end) && WTERMSIG(end) == SIGKILL;
    if (!wasKilled && !(allowsFailedSteps_ && WIFEXITED(end)) && fault_.empty())
        fault_ = "the writer ended by itself: " + shownEnd(end);
    count();

    auto wrong = checkAnew(place_, expectation_);
    if (fault_.empty())
        fault_ = std::move(wrong);
    if (fault_.empty())
        report_.passed();
    else
        report_.failed("round " + std::to_string(report_.cases()) + ": " + fault_);
    return fault_.empty();
}

/// Either some time after the start, which hits the start of the process and the first opening of
/// the store, or some time after a step, which hits any place in one.
void Kills::waitForTheInstant(Child& writer)
{
    JournalReader journal(writer.output());
    if (random_.oneIn(3))
    {
        const auto end = Clock::now() + std::chrono::microseconds(random_.below(30'000));
        while (Clock::now() < end)
            if (const auto record = journal.next(0))
                take(*record);
        return;
    }
    const auto wanted = 1 + random_.below(30);
    for (std::uint64_t seen = 0; seen < wanted; ++seen)
    {
        const auto record = journal.next(patience);
        if (!record)
            return;
        take(*record);
    }
    spin(std::chrono::microseconds(random_.below(1'500)));
}

void Kills::take(const JournalRecord& record)
{
    number_ = record.step.number;
    if (!record.ended)
    {
        expectation_.began(record.step);
        return;
    }
    const auto status = static_cast<KeychainStatus>(record.status);
    const bool answered = status == KeychainStatus::success ||
                          status == KeychainStatus::itemNotFound ||
                          status == KeychainStatus::duplicateItem;
    ++stepsInRound_;
    // A step that failed because of the kill is one that is under way for ever.
    if (!answered && allowsFailedSteps_)
        return;
    const auto wrong = expectation_.acknowledged(record.step, status);
    if (fault_.empty())
        fault_ = wrong;
}

void Kills::count()
{
    steps_ += stepsInRound_;
    if (expectation_.underWay())
        ++inStep_;
    else if (stepsInRound_ == 0)
        ++beforeFirst_;
    else
        ++between_;
}

std::string Kills::detail() const
{
    return std::to_string(steps_) + " steps in " + std::to_string(stores_) +
           " stores; the kill fell into a step " + std::to_string(inStep_) +
           " times, between steps " + std::to_string(between_) + ", before the first " +
           std::to_string(beforeFirst_);
}

int runKills(const Settings& settings)
{
    const auto rounds = settings.count ? settings.count : 2000;
    Report report("kills", rounds, settings.seed);
    Random random(settings.seed);
    Kills kills(report, random);
    std::unique_ptr<TemporaryFolder> folder;
    for (std::uint64_t round = 0; round < rounds; ++round)
    {
        // First starts are the rarer thing in life and the harder one to get right.
        if (!folder || random.oneIn(6))
        {
            folder = std::make_unique<TemporaryFolder>();
            const bool withPassphrase = random.oneIn(2);
            kills.startAnew(
                {.folder = folder->path() / "store",
                 .passphrase = withPassphrase ? std::optional<std::uint64_t>(0) : std::nullopt});
        }
        if (!kills.round([](Child& writer) { writer.signal(SIGKILL); }))
            folder.reset();
    }
    return report.close(kills.detail());
}

}  // namespace soak
