#include "tests/support/StepExecutor.hpp"

#include <algorithm>
#include <utility>

StepQueue::StepQueue(StepExecutor& executor, std::string name)
    : executor_(executor), name_(std::move(name))
{}

bool StepQueue::isCurrent() const
{
    return executor_.current_ == this;
}

void StepQueue::runHead()
{
    const auto work = std::move(waiting_.front());
    waiting_.pop_front();
    runInside(work);
}

void StepQueue::runInside(const std::function<void()>& work)
{
    const auto* before = std::exchange(executor_.current_, this);
    work();
    executor_.current_ = before;
}

StepExecutor::~StepExecutor()
{
    // What waits may hold the last reference to work that hands on more when it is dropped.
    while (!isIdle())
        for (const auto& queue : queues_)
            queue->clear();
}

std::shared_ptr<StepQueue> StepExecutor::addQueue(std::string name)
{
    return queues_.emplace_back(std::make_shared<StepQueue>(*this, std::move(name)));
}

bool StepExecutor::isIdle() const
{
    return std::ranges::all_of(queues_, [](const auto& queue) { return queue->size() == 0; });
}

std::size_t StepExecutor::drain(std::size_t limit)
{
    std::size_t count = 0;
    while (!isIdle() && count < limit)
        for (const auto& queue : queues_)
            if (queue->size() > 0 && count < limit)
            {
                queue->runHead();
                ++count;
            }
    return count;
}
