#pragma once

#include "Platform/Concurrency/MainActor.hpp"
#include "Platform/Concurrency/Task.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace platform
{

/// A main thread of our own, for programs without an event loop: command lines, services, tests.
///
/// The thread that constructs it is the main thread; only that one calls the `run` members.
class RunLoop final : public MainActor
{
public:
    /// A loop is shared by those who enqueue; make it with `std::make_shared<RunLoop>()`.
    RunLoop() : thread_(std::this_thread::get_id()) {}

    void enqueue(std::function<void()> work) override;
    void enqueueAll(std::vector<std::function<void()>> work) override;
    bool isCurrent() const override { return std::this_thread::get_id() == thread_; }

    /// Runs work until `stop()`.
    void run();

    /// Ends `run()` after the piece of work that runs now; without one, the next `run()` at once.
    /// Any thread may call it.
    void stop();

    /// Runs what is waiting, without waiting for more. Returns how many pieces there were.
    std::size_t runReady();

    /// Runs work until `ended()` holds, looked at after each piece. `stop()` does not end it.
    void runUntil(const std::function<bool()>& ended);

private:
    std::function<void()> takeFirst();

    const std::thread::id thread_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::function<void()>> waiting_;
    bool stopped_ = false;
};

/// Runs `work` on `loop` until it has ended: the value, or the error that it threw.
template <class T>
T runToEnd(std::shared_ptr<RunLoop> loop, Awaitable<T> work)
{
    std::optional<Outcome<T>> outcome;
    auto task = start<T>(executorOf(loop), std::move(work),
                         [&outcome](Outcome<T> end) { outcome = std::move(end); });
    loop->runUntil([&outcome] { return outcome.has_value(); });
    return std::move(*outcome).get();
}

}  // namespace platform
