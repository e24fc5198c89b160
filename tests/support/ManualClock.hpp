#pragma once

#include "Platform/Concurrency/Clock.hpp"

#include <list>
#include <mutex>

/// A clock that stands still until a test moves it.
class ManualClock final : public platform::Clock
{
public:
    platform::Date now() const override
    {
        const std::lock_guard lock(mutex_);
        return now_;
    }

    void setNow(platform::Date now)
    {
        const std::lock_guard lock(mutex_);
        now_ = now;
    }

    /// Moves both the wall time and the waits, and fires what is due, in order.
    void advance(std::uint64_t nanoseconds);

    /// Moves on to the end of the shortest wait, and ends that one alone.
    void fireNext();

    /// Since the beginning, whatever the wall time was set to.
    std::uint64_t elapsed() const
    {
        const std::lock_guard lock(mutex_);
        return elapsed_;
    }

    /// How many waits have not ended.
    std::size_t timers() const;

private:
    struct Wait
    {
        std::uint64_t due;
        std::function<void()> fire;
    };
    struct ManualTimer;

    std::shared_ptr<Timer> schedule(std::uint64_t nanoseconds, std::function<void()> fire) override;

    mutable std::mutex mutex_;
    platform::Date now_{1'700'000'000};
    std::uint64_t elapsed_ = 0;
    std::list<std::weak_ptr<Wait>> waits_;
};
