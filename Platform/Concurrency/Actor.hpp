#pragma once

#include "Platform/Concurrency/Continuation.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/strand.hpp>

namespace platform
{

namespace detail
{

/// Work that runs somewhere and can be cancelled from elsewhere. Both fields belong to the executor
/// of the work: Asio keeps pointers into a handler that may be gone when a signal is emitted from
/// outside, or after the end.
struct Cancellable
{
    boost::asio::cancellation_signal signal;
    bool done = false;
};

template <class T>
Awaitable<Outcome<T>> outcomeOf(Awaitable<T> work)
{
    try
    {
        if constexpr (std::is_void_v<T>)
        {
            co_await std::move(work);
            co_return Outcome<T>(std::monostate());
        }
        else
        {
            T value = co_await std::move(work);
            co_return Outcome<T>(std::move(value));
        }
    }
    catch (...)
    {
        co_return Outcome<T>(std::current_exception());
    }
}

template <class T, class End>
Awaitable<void> runAndTell(Awaitable<T> work, std::shared_ptr<Cancellable> cancellable,
                           bool cancelled, End end)
{
    // The work looks for cancellation itself, where the order of its checks wants it.
    co_await boost::asio::this_coro::throw_if_cancelled(false);
    if (cancelled)
        cancellable->signal.emit(boost::asio::cancellation_type::terminal);
    Outcome<T> outcome = co_await outcomeOf<T>(std::move(work));
    cancellable->done = true;
    end(std::move(outcome));
}

/// Starts `work` on `executor`, as cancelled work if its caller was cancelled before; `end` gets
/// its outcome there, exactly once.
template <class T, class End>
std::shared_ptr<Cancellable> spawn(Executor executor, Awaitable<T> work, bool cancelled, End end)
{
    auto cancellable = std::make_shared<Cancellable>();
    auto whole = runAndTell<T>(std::move(work), cancellable, cancelled, std::move(end));
    // The signal must outlive the coroutine's own clean-up: this handler is what is released last.
    auto last = [cancellable](std::exception_ptr) {};
    boost::asio::co_spawn(
        executor, std::move(whole),
        boost::asio::bind_cancellation_slot(cancellable->signal.slot(), std::move(last)));
    return cancellable;
}

inline void cancelOn(const Executor& executor, std::shared_ptr<Cancellable> cancellable)
{
    boost::asio::post(executor,
                      [cancellable = std::move(cancellable)]
                      {
                          if (!cancellable->done)
                              cancellable->signal.emit(boost::asio::cancellation_type::terminal);
                      });
}

}  // namespace detail

/// Runs `work` on `executor` and continues on the caller's own; passes the caller's cancellation
/// on. What the work throws reaches the caller.
template <class T>
Awaitable<T> runOn(Executor executor, Awaitable<T> work)
{
    const auto state = co_await boost::asio::this_coro::cancellation_state;
    const bool cancelled = state.cancelled() != boost::asio::cancellation_type::none;
    auto start = [executor, cancelled,
                  held = std::move(work)](std::shared_ptr<Continuation<T>> continuation) mutable
    {
        auto cancellable = detail::spawn<T>(executor, std::move(held), cancelled,
                                            [continuation](Outcome<T> outcome)
                                            { continuation->resume(std::move(outcome)); });
        continuation->onCancel([executor, cancellable]
                               { detail::cancelOn(executor, cancellable); });
    };
    auto wait = suspendCaller<T>(std::move(start));
    co_return co_await std::move(wait);
}

/// Keeps state that is touched by one piece of work at a time, in the order of the calls.
///
/// The public operations of a class that is an actor are `co_return co_await actor_.run(...)`.
/// While one of them awaits something else, others may run: after a `co_await`, look at the state
/// again.
class Actor
{
public:
    /// `executor` runs the actor's work; a worker thread may serve many actors.
    explicit Actor(const Executor& executor) : strand_(boost::asio::make_strand(executor)) {}

    template <class T>
    Awaitable<T> run(Awaitable<T> work) const
    {
        return runOn<T>(strand_, std::move(work));
    }

private:
    boost::asio::strand<Executor> strand_;
};

}  // namespace platform
