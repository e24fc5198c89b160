#include "Platform/Concurrency/RunLoop.hpp"

namespace platform
{

void RunLoop::enqueue(std::function<void()> work)
{
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(work));
    }
    arrived_.notify_one();
}

void RunLoop::run()
{
    while (auto work = next(true))
        work();
}

void RunLoop::stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    arrived_.notify_one();
}

std::size_t RunLoop::runReady()
{
    std::size_t count = 0;
    while (auto work = next(false))
    {
        work();
        ++count;
    }
    return count;
}

void RunLoop::runUntil(const std::function<bool()>& ended)
{
    while (!ended())
    {
        auto work = next(true);
        if (!work)
            return;
        work();
    }
}

std::function<void()> RunLoop::next(bool mayWait)
{
    std::unique_lock lock(mutex_);
    if (mayWait)
        arrived_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
    if (mayWait && std::exchange(stopped_, false))
        return nullptr;
    if (waiting_.empty())
        return nullptr;
    auto work = std::move(waiting_.front());
    waiting_.pop_front();
    return work;
}

}  // namespace platform
