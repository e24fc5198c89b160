#pragma once

#include "Platform/Basics/Date.hpp"
#include "Platform/Concurrency/Awaitable.hpp"

#include <cstdint>
#include <functional>
#include <memory>

namespace platform
{

/// Wall time and waiting. Nothing in the product asks the system for either in another way, so that
/// tests run in manual time.
class Clock
{
public:
    virtual ~Clock() = default;

    /// The wall clock; it may jump when the user or the system sets it.
    virtual Date now() const = 0;

    /// Suspends the caller for `nanoseconds`, measured by a clock that does not jump. A cancelled
    /// caller gets `CancellationError`, at once if it was cancelled before.
    Awaitable<void> sleep(std::uint64_t nanoseconds);

protected:
    /// A timer that waits; dropping it stops it.
    class Timer
    {
    public:
        virtual ~Timer() = default;
    };

    /// Calls `fire` once when the time is over, on any thread, unless the timer is dropped before.
    virtual std::shared_ptr<Timer> schedule(std::uint64_t nanoseconds,
                                            std::function<void()> fire) = 0;
};

/// The machine's clock; its timers run on `executor`.
std::shared_ptr<Clock> systemClock(Executor executor);

}  // namespace platform
