#include "Platform/Networking/CurlEngine.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Concurrency/MainActor.hpp"
#include "Platform/Concurrency/Thread.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <system_error>

namespace platform
{
namespace
{

// Handles are cheap to make but not free.
constexpr std::size_t keptHandles = 64;

thread_local const CurlEngine* currentEngine = nullptr;

URLCompletion failed(std::exception_ptr error)
{
    return {std::nullopt, std::nullopt, std::move(error)};
}

URLCompletion cancelled()
{
    return failed(std::make_exception_ptr(CancellationError()));
}

int newWakeDescriptor()
{
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return descriptor;
}

}  // namespace

CurlEngine::CurlEngine(CurlURLSession::Configuration configuration)
    : options_(std::move(configuration)), wakeDescriptor_(newWakeDescriptor())
{}

CurlEngine::~CurlEngine()
{
    // Only the thread itself can be the last owner of an engine whose thread was not waited for.
    if (thread_.joinable())
        thread_.detach();
    close(wakeDescriptor_);
}

void CurlEngine::start(std::shared_ptr<CurlTask> task)
{
    std::exception_ptr error = std::make_exception_ptr(CancellationError());
    try
    {
        if (leave(starting_, task))
            return;
    }
    catch (...)
    {
        error = std::current_exception();
    }
    task->complete(failed(std::move(error)));
}

void CurlEngine::cancel(std::shared_ptr<CurlTask> task)
{
    leave(ending_, std::move(task));
}

bool CurlEngine::leave(Tasks& door, std::shared_ptr<CurlTask> task)
{
    bool wasAsleep = false;
    {
        const std::lock_guard lock(mutex_);
        if (stopped_)
            return false;
        if (!thread_.joinable())
            startLoop();
        door.push_back(std::move(task));
        wasAsleep = std::exchange(asleep_, false);
    }
    if (wasAsleep)
        wake();
    return true;
}

/// Made here and not on the thread, so that a machine without descriptors is the task's error.
void CurlEngine::startLoop()
{
    auto loop = std::make_shared<CurlLoop>(wakeDescriptor_);
    thread_ = startThread(
        "url-session", [self = shared_from_this(), loop = std::move(loop)] { self->run(*loop); });
}

void CurlEngine::wake() const
{
    const std::uint64_t one = 1;
    // Fails only when the descriptor is readable already, which is what is wanted.
    [[maybe_unused]] const auto written = write(wakeDescriptor_, &one, sizeof one);
}

void CurlEngine::stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    wake();
    if (currentEngine == this)
        return;
    const std::lock_guard lock(joinMutex_);
    if (thread_.joinable())
        thread_.join();
}

void CurlEngine::run(CurlLoop& loop)
{
    currentEngine = this;
    loop_ = &loop;
    while (takeTasks())
    {
        loop.runTimer();
        collectResults();
        tellFinished();
        // Sockets have their turn also while tasks keep coming.
        loop.wait(maySleep() ? CurlLoop::Wait::untilEvent : CurlLoop::Wait::no);
    }
    endAll();
    tellFinished();
    spare_.clear();
}

bool CurlEngine::takeTasks()
{
    bool stopped = false;
    {
        const std::lock_guard lock(mutex_);
        asleep_ = false;
        toStart_.swap(starting_);
        toEnd_.swap(ending_);
        stopped = stopped_;
    }
    for (const auto& task : toStart_)
        begin(task);
    toStart_.clear();
    for (const auto& task : toEnd_)
        end(*task);
    toEnd_.clear();
    return !stopped;
}

bool CurlEngine::maySleep()
{
    const std::lock_guard lock(mutex_);
    asleep_ = !stopped_ && starting_.empty() && ending_.empty();
    return asleep_;
}

void CurlEngine::begin(const std::shared_ptr<CurlTask>& task)
{
    if (task->isCancelled())
    {
        finished_.emplace_back(task, cancelled());
        return;
    }
    try
    {
        launch(task);
    }
    catch (...)
    {
        finished_.emplace_back(task, failed(std::current_exception()));
    }
}

void CurlEngine::launch(const std::shared_ptr<CurlTask>& task)
{
    if (spare_.empty())
        spare_.push_back(std::make_unique<CurlTransfer>(options_, *loop_));
    running_.reserve(running_.size() + 1);

    CurlTransfer& transfer = *spare_.back();
    transfer.prepare(task);
    if (curl_multi_add_handle(loop_->multi(), transfer.handle()) != CURLM_OK)
    {
        transfer.release();
        throw std::bad_alloc();
    }
    task->transfer = &transfer;
    transfer.slot = running_.size();
    running_.push_back(std::move(spare_.back()));
    spare_.pop_back();
}

void CurlEngine::end(const CurlTask& task)
{
    if (task.transfer)
        finish(*task.transfer, cancelled());
}

void CurlEngine::endAll()
{
    while (!running_.empty())
        finish(*running_.back(), cancelled());
}

void CurlEngine::collectResults()
{
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(loop_->multi(), &left))
    {
        CurlTransfer& transfer = CurlTransfer::of(message->easy_handle);
        finish(transfer, transfer.outcome(message->data.result));
    }
}

void CurlEngine::finish(CurlTransfer& transfer, URLCompletion completion)
{
    curl_multi_remove_handle(loop_->multi(), transfer.handle());
    auto task = transfer.release();
    task->transfer = nullptr;
    finished_.emplace_back(std::move(task), std::move(completion));

    const std::size_t slot = transfer.slot;
    running_.back()->slot = slot;
    if (spare_.size() < keptHandles)
        spare_.push_back(std::move(running_[slot]));
    running_[slot] = std::move(running_.back());
    running_.pop_back();
}

/// All at once, after the work: the thread that waits for them then wakes up once for several.
void CurlEngine::tellFinished()
{
    told_.swap(finished_);
    std::optional<MainActorBatch> batch;
    if (told_.size() > 1)
        batch.emplace();
    for (auto& [task, completion] : told_)
        task->complete(std::move(completion));
    told_.clear();
}

}  // namespace platform
