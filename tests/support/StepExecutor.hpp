#pragma once

#include "Platform/Concurrency/MainActor.hpp"

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class StepExecutor;

/// A thread that is none: what is handed to it waits until a test runs it, first come, first run.
/// `platform::executorOf` makes an executor of it.
class StepQueue final : public platform::MainActor
{
public:
    StepQueue(StepExecutor& executor, std::string name);

    void enqueue(std::function<void()> work) override { waiting_.push_back(std::move(work)); }
    bool isCurrent() const override;

    const std::string& name() const noexcept { return name_; }
    std::size_t size() const noexcept { return waiting_.size(); }

    /// Runs what has waited longest; there must be something.
    void runHead();

    /// Runs `work` at once, as a piece of this queue: for what a host does on its main thread.
    void runInside(const std::function<void()>& work);

    /// Drops what waits; what is handed over meanwhile waits then.
    void clear() { std::exchange(waiting_, {}); }

private:
    StepExecutor& executor_;
    const std::string name_;
    std::deque<std::function<void()>> waiting_;
};

/// Queues that stand for the threads of one or several programs, run by one thread, one piece at a
/// time, in whatever order a test chooses.
class StepExecutor
{
public:
    StepExecutor() = default;
    ~StepExecutor();
    StepExecutor(const StepExecutor&) = delete;
    StepExecutor& operator=(const StepExecutor&) = delete;

    std::shared_ptr<StepQueue> addQueue(std::string name);

    const std::vector<std::shared_ptr<StepQueue>>& queues() const noexcept { return queues_; }
    bool isIdle() const;

    /// Runs the queues in turn until nothing waits, and at most `limit` pieces. Returns how many
    /// ran.
    std::size_t drain(std::size_t limit);

private:
    friend class StepQueue;

    std::vector<std::shared_ptr<StepQueue>> queues_;
    const StepQueue* current_ = nullptr;
};
