#include "Platform/Concurrency/WorkerThread.hpp"

#include "Platform/Concurrency/Thread.hpp"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <mutex>
#include <thread>

namespace platform
{

struct WorkerThread::State
{
    boost::asio::io_context context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work =
        boost::asio::make_work_guard(context);
    std::mutex mutex;
    std::thread thread;
    bool stopped = false;
};

WorkerThread::WorkerThread() : state_(std::make_shared<State>()) {}

WorkerThread::~WorkerThread()
{
    stop();
}

Executor WorkerThread::executor()
{
    const std::lock_guard lock(state_->mutex);
    if (!state_->stopped && !state_->thread.joinable())
        state_->thread = startThread("tessera-worker", [state = state_] { state->context.run(); });
    return state_->context.get_executor();
}

void WorkerThread::stop()
{
    state_->context.stop();
    finish();
}

void WorkerThread::finish()
{
    std::thread ended;
    {
        const std::lock_guard lock(state_->mutex);
        state_->stopped = true;
        state_->work.reset();
        ended = std::move(state_->thread);
    }
    if (!ended.joinable())
        return;
    // A host may end the process from within a callback that runs here.
    if (ended.get_id() == std::this_thread::get_id())
        ended.detach();
    else
        ended.join();
}

}  // namespace platform
