#pragma once

#include "Platform/Concurrency/Awaitable.hpp"

#include <memory>

namespace platform
{

/// One thread that serves actors and timers. It starts with the first use of `executor()` and ends
/// in the destructor; work that is still waiting then is dropped.
class WorkerThread
{
public:
    WorkerThread();
    ~WorkerThread();

    Executor executor();

    /// Ends the thread; work that is handed over later is kept and never run. To be called from any
    /// other thread than the worker itself, more than once if you like.
    void stop();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace platform
