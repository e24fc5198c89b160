#pragma once

#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Concurrency/RunLoop.hpp"

#include <memory>
#include <utility>

namespace platform
{

/// Lets the thread that makes it block until something that other threads change has come about.
/// Shared with those who wake it, which may be later than anybody waits.
class Waiter
{
public:
    /// To be called after a change, from any thread.
    void wake()
    {
        loop_->enqueue([] {});
    }

    template <class Condition>
    void wait(const Condition& condition)
    {
        while (!condition())
            runNext();
    }

private:
    friend class Deadline;

    // A batch of its own around each step: what the steps hand to the loop must not stay in one
    // that the calling thread happens to gather.
    void runNext()
    {
        const MainActorBatch batch;
        bool began = false;
        loop_->runUntil([&began] { return std::exchange(began, true); });
    }
    bool runReady()
    {
        const MainActorBatch batch;
        return loop_->runReady() > 0;
    }

    const std::shared_ptr<RunLoop> loop_ = std::make_shared<RunLoop>();
};

/// The end of a wait in the time of a clock; belongs to the thread that waits, and wakes it. It
/// runs when the constructor has returned.
class Deadline
{
public:
    Deadline(std::shared_ptr<Waiter> waiter, std::shared_ptr<Clock> clock,
             std::uint64_t nanoseconds)
        : waiter_(std::move(waiter)), clock_(std::move(clock)), timer_(started(nanoseconds))
    {
        finishSteps();
    }
    ~Deadline()
    {
        {
            const MainActorBatch batch;
            timer_.cancel();
        }
        waiter_->wait([this] { return ended_; });
        finishSteps();
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    bool passed() const noexcept { return passed_; }

private:
    Task<void> started(std::uint64_t nanoseconds)
    {
        const MainActorBatch batch;
        return start<void>(executorOf(waiter_->loop_), clock_->sleep(nanoseconds),
                           [this](Outcome<void> outcome)
                           {
                               passed_ = outcome.succeeded();
                               ended_ = true;
                           });
    }
    void finishSteps()
    {
        while (waiter_->runReady())
        {
        }
    }

    const std::shared_ptr<Waiter> waiter_;
    const std::shared_ptr<Clock> clock_;
    bool passed_ = false;
    bool ended_ = false;
    Task<void> timer_;
};

}  // namespace platform
