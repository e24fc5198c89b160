#pragma once

#include "Platform/Concurrency/Awaitable.hpp"

#include <memory>

namespace platform
{

/// One thread that serves actors and timers. It starts with the first use of `executor()` and ends
/// in the destructor; work that is still waiting then is dropped. It may be destroyed from within a
/// piece of its own work, but not while another thread is still inside a call that hands work over:
/// an executor does not keep the thread's queue alive.
class WorkerThread
{
public:
    WorkerThread();
    ~WorkerThread();

    Executor executor();

    /// Ends the thread after the piece of work that runs now; what is handed over later is kept and
    /// never run. Any thread may call it, more than once.
    void stop();

    /// Ends the thread after all work that was handed over before. Not for a thread with timers.
    void finish();

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace platform
