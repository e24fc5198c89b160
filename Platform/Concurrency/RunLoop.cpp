#include "Platform/Concurrency/RunLoop.hpp"

#include <algorithm>
#include <iterator>

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

void RunLoop::enqueueAll(std::vector<std::function<void()>> work)
{
    {
        const std::lock_guard lock(mutex_);
        std::move(work.begin(), work.end(), std::back_inserter(waiting_));
    }
    arrived_.notify_one();
}

void RunLoop::run()
{
    for (;;)
    {
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
        if (std::exchange(stopped_, false))
            return;
        const auto work = takeFirst();
        lock.unlock();
        work();
    }
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
    for (std::size_t count = 0;; ++count)
    {
        std::unique_lock lock(mutex_);
        if (waiting_.empty())
            return count;
        const auto work = takeFirst();
        lock.unlock();
        work();
    }
}

void RunLoop::runUntil(const std::function<bool()>& ended)
{
    while (!ended())
    {
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [this] { return !waiting_.empty(); });
        const auto work = takeFirst();
        lock.unlock();
        work();
    }
}

std::function<void()> RunLoop::takeFirst()
{
    auto work = std::move(waiting_.front());
    waiting_.pop_front();
    return work;
}

}  // namespace platform
