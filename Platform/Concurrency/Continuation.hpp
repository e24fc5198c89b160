#pragma once

#include "Platform/Concurrency/Awaitable.hpp"
#include "Platform/Concurrency/Outcome.hpp"

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <atomic>
#include <functional>
#include <memory>

namespace platform
{

/// A caller that waits for something which ends elsewhere: on another thread, in a callback.
///
/// Whoever holds it resumes the caller with an outcome, from any thread. The first outcome counts,
/// later ones are dropped, and the caller continues on its own executor, never inside `resume`.
template <class T>
class Continuation
{
public:
    virtual ~Continuation() = default;

    void resume(Outcome<T> outcome)
    {
        if (resumed_.exchange(true))
            return;
        outcome_ = std::move(outcome);
        passGate();
    }

    /// To be called once, when the wait has been started. Until then an outcome is held back: it
    /// would let the caller go on, perhaps on another thread, in the middle of its own start.
    void started() { passGate(); }

    /// What to do when the caller is cancelled while it waits; it runs on the caller's executor.
    /// To be set while the wait is being started, and not later.
    void onCancel(std::function<void()> handler) { onCancel_ = std::move(handler); }

    void cancel()
    {
        if (!resumed_ && onCancel_)
            onCancel_();
    }

protected:
    virtual void deliver(Outcome<T> outcome) = 0;

private:
    /// The second of the two, start and outcome, lets the caller go on.
    void passGate()
    {
        if (passed_.fetch_add(1) == 1)
            deliver(std::move(outcome_));
    }

    std::atomic<bool> resumed_ = false;
    std::atomic<int> passed_ = 0;
    Outcome<T> outcome_;
    std::function<void()> onCancel_;
};

namespace detail
{

template <class T, class Handler>
class HandlerContinuation final : public Continuation<T>
{
public:
    explicit HandlerContinuation(Handler handler) : handler_(std::move(handler)) {}

    void deliver(Outcome<T> outcome) override
    {
        auto executor = boost::asio::get_associated_executor(handler_);
        boost::asio::post(executor,
                          [handler = std::move(handler_), outcome = std::move(outcome)]() mutable
                          {
                              // The slot belongs to the caller's executor, where this runs.
                              boost::asio::get_associated_cancellation_slot(handler).clear();
                              std::move(handler)(std::move(outcome));
                          });
    }

private:
    Handler handler_;
};

}  // namespace detail

/// Suspends the caller and calls `start` with its continuation; `start`, and what it holds, live
/// until the wait has ended. A caller that was cancelled before is told at once through `onCancel`,
/// after `start` has run.
template <class T, class Start>
Awaitable<T> suspendCaller(Start start)
{
    const auto state = co_await boost::asio::this_coro::cancellation_state;
    const bool cancelled = state.cancelled() != boost::asio::cancellation_type::none;

    auto initiation = [cancelled, &start](auto handler)
    {
        using Handler = decltype(handler);
        auto slot = boost::asio::get_associated_cancellation_slot(handler);
        auto continuation =
            std::make_shared<detail::HandlerContinuation<T, Handler>>(std::move(handler));
        if (slot.is_connected())
        {
            // Weak: the slot may stay assigned for longer than the wait.
            std::weak_ptr<Continuation<T>> waiting = continuation;
            slot.assign(
                [waiting](boost::asio::cancellation_type)
                {
                    if (auto alive = waiting.lock())
                        alive->cancel();
                });
        }
        start(std::shared_ptr<Continuation<T>>(continuation));
        if (cancelled)
            continuation->cancel();
        // From here on this frame may be gone.
        continuation->started();
    };
    using Token = boost::asio::use_awaitable_t<Executor>;
    auto wait = boost::asio::async_initiate<const Token, void(Outcome<T>)>(initiation, Token());
    auto outcome = co_await std::move(wait);
    co_return std::move(outcome).get();
}

}  // namespace platform
