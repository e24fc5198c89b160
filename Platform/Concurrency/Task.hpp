#pragma once

#include "Platform/Concurrency/Actor.hpp"
#include "Platform/Concurrency/CancellationError.hpp"

#include <algorithm>
#include <mutex>
#include <vector>

namespace platform
{

/// Work that has been started: a handle that may be copied, awaited by several, and cancelled.
///
/// Dropping every handle does not stop the work. Any thread may call its members.
template <class T>
class Task
{
public:
    /// Starts `work` on `executor`.
    static Task start(const Executor& executor, Awaitable<T> work)
    {
        Task task(std::make_shared<State>());
        auto state = task.state_;
        state->executor = executor;
        state->cancellable =
            detail::spawn<T>(executor, std::move(work), false,
                             [state](Outcome<T> outcome) { state->finish(std::move(outcome)); });
        return task;
    }

    /// Asks the work to stop; how it ends is seen in `value()`. Nothing happens once it has ended.
    void cancel() const { detail::cancelOn(state_->executor, state_->cancellable); }

    bool finished() const
    {
        const std::lock_guard lock(state_->mutex);
        return state_->outcome.has_value();
    }

    /// Waits for the end: the value, or the error that the work threw. A caller that is cancelled
    /// while it waits gets `CancellationError`; the work and its other callers are not touched.
    Awaitable<T> value() const
    {
        auto start = [state = state_](std::shared_ptr<Continuation<T>> caller)
        {
            caller->onCancel([held = std::weak_ptr(state), key = caller.get()]
                             { State::giveUp(held, key); });
            state->wait(std::move(caller));
        };
        return suspendCaller<T>(std::move(start));
    }

    /// The same for a caller that owns the work: when it is cancelled, so is the work, and it still
    /// waits for the end of that.
    Awaitable<T> valueOfOwnWork() const
    {
        auto start = [task = *this](std::shared_ptr<Continuation<T>> caller)
        {
            caller->onCancel([task] { task.cancel(); });
            task.state_->wait(std::move(caller));
        };
        return suspendCaller<T>(std::move(start));
    }

    bool operator==(const Task&) const = default;

private:
    struct State
    {
        void finish(Outcome<T> result)
        {
            std::vector<std::shared_ptr<Continuation<T>>> callers;
            {
                const std::lock_guard lock(mutex);
                outcome = result;
                callers.swap(waiting);
            }
            for (auto& caller : callers)
                caller->resume(result);
        }

        void wait(std::shared_ptr<Continuation<T>> caller)
        {
            const std::lock_guard lock(mutex);
            if (outcome)
                caller->resume(*outcome);
            else
                waiting.push_back(std::move(caller));
        }

        /// Lets one caller go; it is not listed any more when the work ends.
        static void giveUp(const std::weak_ptr<State>& held, const Continuation<T>* key)
        {
            const auto state = held.lock();
            if (!state)
                return;
            const std::lock_guard lock(state->mutex);
            auto& waiting = state->waiting;
            const auto found = std::find_if(waiting.begin(), waiting.end(),
                                            [key](const auto& one) { return one.get() == key; });
            if (found == waiting.end())
                return;
            const auto caller = *found;
            waiting.erase(found);
            caller->resume(std::make_exception_ptr(CancellationError()));
        }

        std::mutex mutex;
        std::optional<Outcome<T>> outcome;
        std::vector<std::shared_ptr<Continuation<T>>> waiting;
        Executor executor;
        std::shared_ptr<detail::Cancellable> cancellable;
    };

    explicit Task(std::shared_ptr<State> state) : state_(std::move(state)) {}

    std::shared_ptr<State> state_;
};

/// For hosts that write no coroutines: starts `work` on `executor` and calls `onEnd` there with its
/// `Outcome`, exactly once. The handle cancels the work; it has ended when `onEnd` has returned.
template <class T, class OnEnd>
Task<void> start(const Executor& executor, Awaitable<T> work, OnEnd onEnd)
{
    auto whole = [](Awaitable<T> inner, OnEnd end) -> Awaitable<void>
    {
        Outcome<T> outcome = co_await detail::outcomeOf<T>(std::move(inner));
        end(std::move(outcome));
    };
    return Task<void>::start(executor, whole(std::move(work), std::move(onEnd)));
}

}  // namespace platform
