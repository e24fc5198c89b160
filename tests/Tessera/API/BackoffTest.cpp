#include "Tessera/API/Backoff.hpp"
#include "Tessera/API/Retry.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Concurrency/Task.hpp"
#include "tests/support/ManualClock.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace tessera;
using platform::Awaitable;

constexpr auto largest = std::numeric_limits<std::uint64_t>::max();

static_assert(BackoffStrategy<ExponentialBackoffStrategy>);

std::vector<std::uint64_t> delays(const ExponentialBackoffStrategy& strategy, int count)
{
    auto iterator = strategy.makeIterator();
    std::vector<std::uint64_t> all;
    for (int index = 0; index < count; ++index)
        all.push_back(iterator.next().nanoseconds);
    return all;
}

TEST(Backoff, MultipliesUpToTheLongestDelay)
{
    const auto doubling = delays(Backoff::exponential(2, RetryDelay::seconds(1)), 40);
    for (std::size_t index = 0; index < 35; ++index)
        EXPECT_EQ(doubling[index], 1'000'000'000ULL << index) << index;
    EXPECT_EQ(doubling[34], 17'179'869'184'000'000'000ULL);
    for (std::size_t index = 35; index < doubling.size(); ++index)
        EXPECT_EQ(doubling[index], largest) << index;

    struct Row
    {
        std::uint64_t factor;
        std::uint64_t initial;
        std::vector<std::uint64_t> expected;
    };
    const Row rows[] = {
        {1, 7, {7, 7, 7}},
        {3, 5, {5, 15, 45}},
        {2, 0, {0, 0, 0}},
        {2, largest / 2, {largest / 2, largest - 1, largest}},
        {2, largest / 2 + 1, {largest / 2 + 1, largest, largest}},
        {largest, 1, {1, largest, largest}},
        {1, largest, {largest, largest, largest}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(delays(Backoff::exponential(row.factor, {row.initial}), 3), row.expected)
            << row.factor << ", " << row.initial;

    EXPECT_DEATH((void)Backoff::exponential(0, RetryDelay::seconds(1)), "must not be zero");
}

TEST(Backoff, SecondsThatDoNotFitAreTheLongestDelay)
{
    EXPECT_EQ(RetryDelay::seconds(0).nanoseconds, 0U);
    EXPECT_EQ(RetryDelay::seconds(1).nanoseconds, 1'000'000'000U);
    EXPECT_EQ(RetryDelay::seconds(18'446'744'073).nanoseconds, 18'446'744'073'000'000'000U);
    EXPECT_EQ(RetryDelay::seconds(18'446'744'074).nanoseconds, largest);
    EXPECT_EQ(RetryDelay::seconds(largest).nanoseconds, largest);
}

TEST(Backoff, EachRunTakesAnIteratorOfItsOwn)
{
    const auto strategy = Backoff::exponential(2, RetryDelay::seconds(1));
    auto first = strategy.makeIterator();
    first.next();

    EXPECT_EQ(strategy.makeIterator().next(), RetryDelay::seconds(1));
}

struct Failure
{
    int attempt;
};

/// Runs `retry` in manual time over an operation that succeeds at one attempt, if at all.
struct RetryRun
{
    explicit RetryRun(int maxAttempts, int success = 0, int stopAfter = 0) : succeedsAt(success)
    {
        auto decision = [this, stopAfter,
                         delay = Backoff::exponential(2, RetryDelay::seconds(1)).makeIterator()](
                            std::exception_ptr error) mutable
        {
            try
            {
                std::rethrow_exception(error);
            }
            catch (const Failure& failure)
            {
                decided.push_back(failure.attempt);
            }
            return attempts == stopAfter ? RetryAction::stop() : RetryAction::backoff(delay.next());
        };
        auto work = retry<std::string>(
            maxAttempts, [this] { return attempt(this); }, std::move(decision), clock);
        task = platform::start<std::string>(executorOf(loop), std::move(work),
                                            [this](auto end) { outcome = std::move(end); });
        loop->runReady();
    }

    static Awaitable<std::string> attempt(RetryRun* run)
    {
        const int number = ++run->attempts;
        if (number != run->succeedsAt)
            throw Failure{number};
        co_return "attempt " + std::to_string(number);
    }

    void pass(std::uint64_t nanoseconds)
    {
        clock->advance(nanoseconds);
        loop->runReady();
    }

    /// How it ended, in words.
    std::string end() const
    {
        if (!outcome)
            return "runs";
        try
        {
            return outcome->get();
        }
        catch (const Failure& failure)
        {
            return "failure " + std::to_string(failure.attempt);
        }
        catch (const platform::CancellationError&)
        {
            return "cancelled";
        }
    }

    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    int succeedsAt;
    int attempts = 0;
    std::vector<int> decided;
    std::optional<platform::Outcome<std::string>> outcome;
    std::optional<platform::Task<void>> task;
};

TEST(Retry, RunsAndWaitsAsOftenAsItMayAndThrowsTheLastError)
{
    struct Row
    {
        int maxAttempts;
        int success;
        int stopAfter;
        std::vector<int> waits;  // in seconds
        std::size_t decisions;
        const char* end;
    };
    const Row rows[] = {
        {1, 0, 0, {}, 0, "failure 1"},           {1, 1, 0, {}, 0, "attempt 1"},
        {5, 0, 0, {1, 2, 4, 8}, 4, "failure 5"}, {5, 5, 0, {1, 2, 4, 8}, 4, "attempt 5"},
        {4, 3, 0, {1, 2}, 2, "attempt 3"},       {5, 0, 1, {}, 1, "failure 1"},
        {5, 0, 3, {1, 2}, 3, "failure 3"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::to_string(row.maxAttempts) + ", " + row.end);
        RetryRun run(row.maxAttempts, row.success, row.stopAfter);

        for (std::size_t wait = 0; wait < row.waits.size(); ++wait)
        {
            const auto attempts = static_cast<int>(wait) + 1;
            EXPECT_EQ(run.attempts, attempts);
            run.pass(static_cast<std::uint64_t>(row.waits[wait]) * 1'000'000'000 - 1);
            EXPECT_EQ(run.attempts, attempts) << "too soon";
            EXPECT_EQ(run.end(), "runs");
            run.pass(1);
        }

        EXPECT_EQ(run.end(), row.end);
        EXPECT_EQ(run.attempts, static_cast<int>(row.waits.size()) + 1);
        EXPECT_EQ(run.decided.size(), row.decisions);
        EXPECT_EQ(run.clock->timers(), 0U);
    }
}

TEST(Retry, CancellationEndsTheWaitAndLeavesUnchanged)
{
    RetryRun run(5);
    run.pass(500'000'000);

    run.task->cancel();
    run.loop->runReady();

    EXPECT_EQ(run.end(), "cancelled");
    EXPECT_EQ(run.attempts, 1);
    EXPECT_EQ(run.decided, std::vector{1});
    EXPECT_EQ(run.clock->timers(), 0U);
}

TEST(Retry, FewerAttemptsThanOneStopTheProcess)
{
    for (const int attempts : {0, -1, std::numeric_limits<int>::min()})
        EXPECT_DEATH(RetryRun{attempts}, "must be tried at least once");
}

}  // namespace
