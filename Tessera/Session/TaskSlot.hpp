#pragma once

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Concurrency/Task.hpp"

#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <cstdint>
#include <optional>

namespace tessera
{

/// The place of a background task of which there is one at most. It belongs to the main actor, and
/// to an object that the task's work keeps alive.
class TaskSlot
{
public:
    /// Begins `work` in a turn of its own, after what runs now. The work clears the slot as its own
    /// last act; only its own handle, never a successor's.
    void start(const platform::Executor& executor, platform::Awaitable<void> work)
    {
        cancel();
        task_ = platform::Task<void>::start(executor, run(this, ++number_, std::move(work)));
    }

    /// Cancels the task, and forgets it at once.
    void cancel()
    {
        if (task_)
            task_->cancel();
        task_.reset();
    }

    bool isRunning() const noexcept { return task_.has_value(); }

    /// The end of the task that runs now: its outcome, for all who wait. There must be one.
    platform::Awaitable<void> end() const
    {
        if (!task_)
            platform::fatal("There is no task whose end could be awaited");
        return task_->value();
    }

private:
    static platform::Awaitable<void> run(TaskSlot* slot, std::uint64_t number,
                                         platform::Awaitable<void> work)
    {
        const auto turn = boost::asio::use_awaitable_t<platform::Executor>();
        co_await boost::asio::post(turn);
        co_await platform::checkCancellation();
        auto outcome = co_await platform::detail::outcomeOf<void>(std::move(work));
        if (slot->number_ == number)
            slot->task_.reset();
        std::move(outcome).get();
    }

    std::optional<platform::Task<void>> task_;
    std::uint64_t number_ = 0;
};

}  // namespace tessera
