#include "NetTasks/ResilientAsyncURLSessionTask.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Services/Services.hpp"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <utility>

namespace nettasks
{
namespace
{

/// The exponent counts from one below, so that the first wait is half of the base delay.
std::uint64_t waitBeforeRetry(double baseDelay, int retries)
{
    constexpr double nanosecondsPerSecond = 1e9;
    constexpr double limit = 18'446'744'073'709'551'616.0;  // 2^64
    const double nanoseconds = std::ldexp(baseDelay, retries - 1) * nanosecondsPerSecond;
    // Said this way round, it holds for what is not a number, too.
    if (!(nanoseconds >= 0 && nanoseconds < limit))
        platform::fatal("The base delay of a retry policy is not a time that can be waited for");
    return static_cast<std::uint64_t>(nanoseconds);
}

}  // namespace

/// What outlives the task while a caller waits.
struct ResilientAsyncURLSessionTask::Attempts
{
    const TaskProvider provider;
    const std::shared_ptr<const RetryPolicy> policy;
    const std::shared_ptr<platform::Clock> clock;
    platform::Progress progress;
    std::atomic<int> retries = 0;
    platform::Progress::Subscription observation;

    bool wantsRetry(const DataAndResponse& answer) const
    {
        return retries < policy->maximumRetries() &&
               policy->shouldRetry(answer.body, answer.response);
    }
};

ResilientAsyncURLSessionTask::ResilientAsyncURLSessionTask(
    TaskProvider taskProvider, std::shared_ptr<const RetryPolicy> retryPolicy,
    std::shared_ptr<platform::Clock> clock)
    : attempts_(new Attempts{.provider = std::move(taskProvider),
                             .policy = std::move(retryPolicy),
                             .clock = clock ? std::move(clock) : platform::services().clock,
                             .progress = {},
                             .observation = {}})
{}

platform::Progress& ResilientAsyncURLSessionTask::progress()
{
    return attempts_->progress;
}

int ResilientAsyncURLSessionTask::retries() const
{
    return attempts_->retries;
}

platform::Awaitable<DataAndResponse> ResilientAsyncURLSessionTask::resume()
{
    return run(attempts_);
}

platform::Awaitable<DataAndResponse> ResilientAsyncURLSessionTask::attempt(
    std::shared_ptr<Attempts> attempts)
{
    const auto task = attempts->provider();
    // The last attempt's observation ends before this one's begins to tell.
    attempts->observation = {};
    std::weak_ptr<Attempts> mirror = attempts;
    attempts->observation = task->progress().observe(
        [mirror](std::int64_t total, std::int64_t completed)
        {
            if (const auto alive = mirror.lock())
                alive->progress.update(total, completed);
        });
    auto answer = co_await task->resume();
    co_return answer;
}

platform::Awaitable<DataAndResponse> ResilientAsyncURLSessionTask::run(
    std::shared_ptr<Attempts> attempts)
{
    for (;;)
    {
        co_await platform::checkCancellation();
        {
            // An answer that is not wanted, and its task, must not lie about for the whole wait.
            auto answer = co_await attempt(attempts);
            if (!attempts->wantsRetry(answer))
                co_return answer;
        }
        const auto wait = waitBeforeRetry(attempts->policy->baseDelay(), attempts->retries);
        co_await attempts->clock->sleep(wait);
        ++attempts->retries;
    }
}

}  // namespace nettasks
