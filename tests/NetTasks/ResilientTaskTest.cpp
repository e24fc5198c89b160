#include "NetTasks/ResilientAsyncURLSessionTask.hpp"

#include "NetTasks/SessionExtension.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "tests/NetTasks/TransferTest.hpp"
#include "tests/support/ManualClock.hpp"

#include <limits>
#include <optional>
#include <string>
#include <vector>

using namespace nettasks;
using platform::CancellationError;

namespace
{

constexpr std::uint64_t second = 1'000'000'000;

/// Retries every status from 500 on.
struct Policy final : RetryPolicy
{
    explicit Policy(double wait, int most = 3) : delay(wait), retries(most) {}

    double baseDelay() const override { return delay; }
    int maximumRetries() const override { return retries; }
    bool shouldRetry(const platform::SecretBytes&,
                     const platform::URLResponse& response) const override
    {
        ++asked;
        return platform::httpStatusCode(response) >= 500;
    }

    double delay;
    int retries;
    mutable int asked = 0;
};

struct ResilientTask : TransferTest
{
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();

    std::shared_ptr<ResilientAsyncURLSessionTask> made(std::shared_ptr<Policy> policy)
    {
        return std::make_shared<ResilientAsyncURLSessionTask>(
            [with = session] { return asyncDataTask(with, request()); }, std::move(policy), clock);
    }

    void answer(int status)
    {
        session->started.back()->answer(status, std::to_string(status));
        loop->runReady();
    }

    /// Moves the time until the next attempt starts; nothing when none waits. No attempt may start
    /// one nanosecond early.
    std::optional<std::uint64_t> waited(std::uint64_t expected)
    {
        const auto attempts = session->started.size();
        clock->advance(expected - 1);
        loop->runReady();
        if (session->started.size() != attempts)
            return 0;
        clock->advance(1);
        loop->runReady();
        return session->started.size() == attempts + 1 ? std::optional(expected) : std::nullopt;
    }
};

using ResilientTaskDeathTest = ResilientTask;

}  // namespace

TEST_F(ResilientTask, WaitsHalfTheBaseDelayThenTheWholeThenTwice)
{
    const auto policy = std::make_shared<Policy>(1);
    const auto task = made(policy);
    auto call = started(task->resume());

    for (const std::uint64_t wait : {second / 2, second, 2 * second})
    {
        answer(503);
        EXPECT_EQ(waited(wait), wait);
    }
    answer(504);

    EXPECT_EQ(status(call), 504) << "the last answer, good or bad";
    EXPECT_EQ(session->started.size(), 4u);
    EXPECT_EQ(policy->asked, 3);

    // Nothing is reset: another call has no retry left.
    auto again = started(task->resume());
    answer(503);
    EXPECT_EQ(status(again), 503);
    EXPECT_EQ(task->retries(), 3);
}

TEST_F(ResilientTask, DoesNotAskThePolicyWithoutNeed)
{
    const auto once = std::make_shared<Policy>(-1.0, 0);
    auto call = started(made(once)->resume());
    answer(503);
    EXPECT_EQ(status(call), 503);
    EXPECT_EQ(once->asked, 0);

    const auto policy = std::make_shared<Policy>(-1.0);
    auto failing = started(made(policy)->resume());
    session->started.back()->fail(std::make_exception_ptr(std::runtime_error("cable")));
    EXPECT_THROW(ended(failing), std::runtime_error);
    EXPECT_EQ(policy->asked, 0) << "an error of the transport is never retried";

    auto good = started(made(policy)->resume());
    answer(204);
    EXPECT_EQ(status(good), 204);
    EXPECT_EQ(policy->asked, 1);
}

TEST_F(ResilientTask, CancellationEndsAnAttemptAndAWaitAndStartsNothingMore)
{
    for (const bool waiting : {false, true})
    {
        auto task = made(std::make_shared<Policy>(1));
        auto call = started(task->resume());
        task.reset();  // The caller waits all the same.
        if (waiting)
            answer(503);
        const auto attempts = session->started.size();
        call.cancel();
        EXPECT_THROW(ended(call), CancellationError);
        EXPECT_TRUE(session->started.back()->ended());
        clock->advance(10 * second);
        loop->runReady();
        EXPECT_EQ(session->started.size(), attempts);
        EXPECT_EQ(clock->timers(), 0u);
    }
}

TEST_F(ResilientTask, MirrorsTheProgressOfTheRunningAttemptAlone)
{
    using Counts = std::vector<std::pair<std::int64_t, std::int64_t>>;
    const auto task = made(std::make_shared<Policy>(2));
    Counts told;
    const auto watching = task->progress().observe([&told](auto total, auto completed)
                                                   { told.emplace_back(total, completed); });
    auto call = started(task->resume());
    auto& first = *session->started.front();
    first.progress().update(10, 4);
    answer(500);
    EXPECT_EQ(waited(second), second);
    first.progress().update(10, 10);
    session->started.back()->progress().update(10, 1);
    answer(200);
    ended(call);
    EXPECT_EQ(told, (Counts{{0, 0}, {10, 4}, {0, 0}, {10, 1}}));
}

TEST_F(ResilientTaskDeathTest, ADelayThatIsNoTimeStopsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto afterAnswers = [this](double delay, int answers)
    {
        clock = std::make_shared<ManualClock>();
        auto call = started(made(std::make_shared<Policy>(delay, answers))->resume());
        for (int index = 0; index < answers; ++index)
        {
            answer(503);
            clock->advance(std::uint64_t{1} << 63);
            loop->runReady();
        }
        call.cancel();
        loop->runReady();
    };
    const double infinite = std::numeric_limits<double>::infinity();
    const double tooLong = 18'446'744'073.709551616;  // 2^64 nanoseconds, from the second wait on.
    for (const double delay :
         {-1e-9, std::numeric_limits<double>::quiet_NaN(), infinite, 2 * tooLong})
        EXPECT_DEATH(afterAnswers(delay, 1), "base delay") << delay;
    EXPECT_DEATH(afterAnswers(tooLong, 2), "base delay");
    afterAnswers(tooLong, 1);
    afterAnswers(-0.0, 1);
}
