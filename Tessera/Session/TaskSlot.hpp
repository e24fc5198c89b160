#pragma once

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Concurrency/Task.hpp"

#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <cstdint>
#include <memory>
#include <optional>

namespace tessera
{

/// The place of a background task of which there is one at most. It belongs to the main actor, and
/// may go before its task has ended.
class TaskSlot
{
public:
    /// Begins `work` in a turn of its own, after what runs now, and not at all if it is cancelled
    /// until then. The work clears the slot as its own last act; only its own handle, never a
    /// successor's.
    void start(const platform::Executor& executor, platform::Awaitable<void> work)
    {
        cancel();
        place_->task =
            platform::Task<void>::start(executor, run(place_, place_->number, std::move(work)));
    }

    /// Cancels the task, and forgets it at once.
    void cancel()
    {
        if (place_->task)
            place_->task->cancel();
        place_->task.reset();
        ++place_->number;
    }

    bool isRunning() const noexcept { return place_->task.has_value(); }

    /// The end of the task that runs now: its outcome, for all who wait. There must be one.
    platform::Awaitable<void> end() const
    {
        if (!place_->task)
            platform::fatal("There is no task whose end could be awaited");
        return place_->task->value();
    }

private:
    struct Place
    {
        std::optional<platform::Task<void>> task;
        std::uint64_t number = 0;
    };

    static platform::Awaitable<void> run(std::shared_ptr<Place> place, std::uint64_t number,
                                         platform::Awaitable<void> work)
    {
        const auto turn = boost::asio::use_awaitable_t<platform::Executor>();
        co_await boost::asio::post(turn);
        // The task hears of its cancellation only in a later turn.
        if (place->number != number)
            throw platform::CancellationError();
        auto outcome = co_await platform::detail::outcomeOf<void>(std::move(work));
        if (place->number == number)
            place->task.reset();
        std::move(outcome).get();
    }

    const std::shared_ptr<Place> place_ = std::make_shared<Place>();
};

}  // namespace tessera
