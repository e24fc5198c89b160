#include "Platform/Security/SecretService/GLibThread.hpp"

#include "Platform/Concurrency/Thread.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

#include <exception>
#include <utility>

namespace platform
{

struct GLibThread::Job
{
    Work work;
    GHandle<GCancellable> cancellable;
    std::condition_variable_any changed;
    std::exception_ptr failure;
    bool done = false;
    bool dropped = false;
};

GLibThread::GLibThread(const SecretLibrary& library, std::function<void()> atEnd)
    : library_(library),
      atEnd_(std::move(atEnd)),
      ending_(library.g_cancellable_new(), GRelease{&library})
{}

GLibThread::~GLibThread()
{
    shutdown();
}

void GLibThread::run(Deadline deadline, Work work, std::stop_token ended)
{
    const auto job = std::make_shared<Job>();
    job->work = std::move(work);
    job->cancellable = {library_.g_cancellable_new(), GRelease{&library_}};

    std::unique_lock lock(mutex_);
    if (stopped_)
        throw secretServiceFailures::shutDown();
    start();
    queue_.push_back(job);
    work_.notify_one();
    const auto over = [&job] { return job->done || job->dropped; };
    if (!job->changed.wait_until(lock, ended, deadline, over))
    {
        const auto unstarted = std::erase(queue_, job) > 0 ? std::exchange(job->work, {}) : Work();
        lock.unlock();
        library_.g_cancellable_cancel(job->cancellable.get());
        throw secretServiceFailures::timeLimit();
    }
    if (job->dropped || (stopped_ && job->failure))
        throw secretServiceFailures::shutDown();
    // Taken out, so that the exception is this thread's alone from here on.
    if (const auto failure = std::exchange(job->failure, nullptr))
    {
        lock.unlock();
        std::rethrow_exception(failure);
    }
}

void GLibThread::start()
{
    if (!thread_.joinable())
        thread_ = startThread("tessera-glib", [this] { body(); });
}

void GLibThread::body()
{
    const GHandle<GMainContext> context(library_.g_main_context_new(), GRelease{&library_});
    library_.g_main_context_push_thread_default(context.get());
    {
        std::unique_lock lock(mutex_);
        for (;;)
        {
            work_.wait(lock, [this] { return stopped_ || !queue_.empty(); });
            if (stopped_)
                break;
            current_ = std::move(queue_.front());
            queue_.pop_front();
            perform(lock, current_, context.get());
            current_.reset();
        }
    }
    atEnd_();
    while (library_.g_main_context_iteration(context.get(), FALSE))
        ;
    library_.g_main_context_pop_thread_default(context.get());
}

void GLibThread::perform(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Job>& job,
                         GMainContext* context)
{
    Work work = std::move(job->work);
    std::exception_ptr failure;
    lock.unlock();
    try
    {
        work({context, job->cancellable.get(), ending_.get()});
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    // What the work owns, an inter-process lock for one, is free before its caller goes on.
    work = nullptr;
    lock.lock();
    job->failure = std::move(failure);
    job->done = true;
    job->changed.notify_all();
}

void GLibThread::shutdown()
{
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        library_.g_cancellable_cancel(ending_.get());
        if (current_)
            library_.g_cancellable_cancel(current_->cancellable.get());
        for (const auto& job : queue_)
        {
            job->dropped = true;
            job->changed.notify_all();
        }
        queue_.clear();
        work_.notify_all();
    }
    // Two callers of this both wait for the end.
    const std::lock_guard lock(joining_);
    if (thread_.joinable())
        thread_.join();
}

}  // namespace platform
