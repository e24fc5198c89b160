#pragma once

#include "Platform/Concurrency/Awaitable.hpp"

#include <functional>
#include <memory>

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

    /// Whether the calling thread is the main thread.
    virtual bool isCurrent() const = 0;
};

/// The executor that runs work on the main thread: at once when dispatched from the main thread
/// itself, through `enqueue` otherwise. It does not keep the actor; once that is gone, work is
/// dropped.
Executor executorOf(const std::shared_ptr<MainActor>& actor);

}  // namespace platform
