#pragma once

#include "Platform/Security/SecretService/Deadline.hpp"
#include "Platform/Security/SecretService/SecretLibrary.hpp"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

namespace platform
{
/// What ends the waiting of a piece of work on the GLib thread.
struct GWork
{
    GMainContext* context;
    /// Cancelled when the caller's time is up: its caller has gone, only order remains to be
    /// kept.
    GCancellable* cancellable;
    /// Cancelled when the thread is to end.
    GCancellable* ending;
};

/// A thread with a main context of its own, so that nothing of GLib ever runs in the host's
/// loops. It starts with the first piece of work and does one after the other. A caller waits
/// until its work is done or its deadline is there, whichever is first, whatever GLib does
/// meanwhile. Everything that both sides touch is guarded by this class's mutex. Any thread may
/// call.
class GLibThread
{
public:
    using Work = std::function<void(const GWork&)>;

    /// `atEnd` is the last thing that the thread does.
    GLibThread(const SecretLibrary& library, std::function<void()> atEnd);

    /// `shutdown()`.
    ~GLibThread();

    /// Runs `work`, and throws what it throws, or the failures `timeLimit` and `shutDown`.
    /// After these the work may still be running: it must own all that it uses. It is destroyed
    /// before this returns otherwise. `ended` ends the waiting as the deadline does.
    void run(Deadline deadline, Work work, std::stop_token ended = {});

    /// The same with a result.
    template <class Result>
    Result ask(Deadline deadline, std::function<Result(const GWork&)> work)
    {
        const auto result = std::make_shared<std::optional<Result>>();
        run(deadline, [result, work = std::move(work)](const GWork& at) { *result = work(at); });
        return std::move(**result);
    }

    /// Ends the work that runs, drops what waits, and waits for the thread to end. May be
    /// called again.
    void shutdown();

private:
    struct Job;

    void start();
    void body();
    void perform(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Job>& job,
                 GMainContext* context);

    const SecretLibrary& library_;
    const std::function<void()> atEnd_;
    const GHandle<GCancellable> ending_;
    std::mutex mutex_;
    std::condition_variable work_;
    std::deque<std::shared_ptr<Job>> queue_;
    std::shared_ptr<Job> current_;
    bool stopped_ = false;
    std::thread thread_;
    std::mutex joining_;
};

}  // namespace platform
