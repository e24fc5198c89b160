#pragma once

#include "Platform/Concurrency/Awaitable.hpp"

#include <functional>
#include <memory>
#include <vector>

namespace platform
{

/// The host's main thread. A host implements it in three lines on the event loop that it has, or
/// uses `RunLoop`, and hands it over in `Services`.
class MainActor
{
public:
    virtual ~MainActor() = default;

    /// Runs `work` later on the main thread, in the order of the calls. Any thread may call this;
    /// it never runs `work` itself. Work that is still waiting when the loop ends is dropped.
    virtual void enqueue(std::function<void()> work) = 0;

    /// The same for several pieces of work. An event loop that wakes up for each does better here.
    virtual void enqueueAll(std::vector<std::function<void()>> work);

    /// Whether the calling thread is the main thread.
    virtual bool isCurrent() const = 0;
};

/// The executor that runs work on the main thread: at once when dispatched from the main thread
/// itself, through `enqueue` otherwise. It does not keep the actor; once that is gone, work is
/// dropped.
Executor executorOf(const std::shared_ptr<MainActor>& actor);

/// While one lives, what the calling thread hands to main threads waits in it, and each main thread
/// gets all of it at once, in order, when the object ends. A thread that has several results to
/// tell then wakes the main thread once.
class MainActorBatch
{
public:
    MainActorBatch() noexcept;
    ~MainActorBatch();
    MainActorBatch(const MainActorBatch&) = delete;
    MainActorBatch& operator=(const MainActorBatch&) = delete;

    /// Keeps `work` in the batch that the calling thread has; false when it has none.
    static bool keep(const std::shared_ptr<MainActor>& actor, std::function<void()>& work);

private:
    struct Share
    {
        std::shared_ptr<MainActor> actor;
        std::vector<std::function<void()>> work;
    };

    std::vector<Share> shares_;
    MainActorBatch* const outer_;
};

}  // namespace platform
