#pragma once

#include "Platform/Concurrency/CancellationError.hpp"
#include "Tessera/API/Backoff.hpp"
#include "Tessera/Session/Session.hpp"

#include <utility>

namespace tessera
{

class Account::Session::Listed
{
public:
    Listed(Self session, Call call)
        : session_(std::move(session)),
          place_(session_->calls_.insert(session_->calls_.end(), std::move(call)))
    {}
    ~Listed() { session_->calls_.erase(place_); }
    Listed(const Listed&) = delete;
    Listed& operator=(const Listed&) = delete;

private:
    const Self session_;
    const std::list<Call>::iterator place_;
};

namespace detail
{

/// Cancellation is no failure.
bool isCancellation(const std::exception_ptr& error);
/// Whether the server does not accept the token.
bool isRefusal(const std::exception_ptr& error);
bool isKeychainError(const std::exception_ptr& error);

/// What to tell the user of it; for a page that somebody else sent instead of an answer, a sentence
/// of our own.
std::string sentenceFor(const std::exception_ptr& error);

/// The waits of a session's retries: 1, 2, 4, ... seconds.
ExponentialBackoffIterator retryDelays();

/// A decision for `retry`: after each failure the next of these waits; cancelled work is over.
std::function<RetryAction(std::exception_ptr)> backOffUnlessCancelled();

/// Lets the caller go on before `work` begins.
template <class T>
platform::Awaitable<T> inOwnTurn(platform::Awaitable<T> work)
{
    const auto turn = boost::asio::use_awaitable_t<platform::Executor>();
    co_await boost::asio::post(turn);
    co_await platform::checkCancellation();
    co_return co_await std::move(work);
}

}  // namespace detail

template <class T>
platform::Awaitable<T> Account::Session::operation(Belongs belongs, Work<T> work)
{
    requireMain();
    const Made made{machine.generation(), ++callsMade_};
    return carriedOver<T>(shared_from_this(), belongs, made, std::move(work));
}

template <class T>
platform::Awaitable<T> Account::Session::carriedOver(Self self, Belongs belongs, Made made,
                                                     Work<T> work)
{
    auto there = onMain<T>(self, belongs, made, std::move(work));
    auto wait = platform::runOn<T>(self->main_, std::move(there));
    co_return co_await std::move(wait);
}

/// A call begins after what the host does now, which may have ended its generation.
template <class T>
platform::Awaitable<T> Account::Session::turn(Self self, Belongs belongs, Generation generation,
                                              Work<T> work)
{
    const auto turn = boost::asio::use_awaitable_t<platform::Executor>();
    co_await boost::asio::post(turn);
    co_await platform::checkCancellation();
    self->requireStanding(belongs, generation);
    auto steps = work(generation);
    co_return co_await std::move(steps);
}

template <class T>
platform::Awaitable<T> Account::Session::onMain(Self self, Belongs belongs, Made made, Work<T> work)
{
    auto captured = made.generation;
    // Whoever hears of its end may begin something newer than this.
    if (belongs == Belongs::beginsOne)
        self->finishDeauthentication();
    if (belongs != Belongs::beginsOne || !self->mayBegin(made))
        self->requireStanding(belongs, captured);
    co_await platform::checkCancellation();
    if (belongs == Belongs::beginsOne)
    {
        captured = self->signInBegins();
        self->latestSignIn_ = {made, captured};
    }

    auto steps = turn<T>(self, belongs, captured, std::move(work));
    // Around the turn: a sign-in that has begun must end, even if its work never begins.
    if constexpr (std::is_same_v<T, AccountState>)
        steps = signInToEnd(self, captured, std::move(steps));
    const auto task = platform::Task<T>::start(self->main_, std::move(steps));
    if constexpr (std::is_same_v<T, AccountState>)
        self->signInTask_ = task;
    const Listed listed(self, {captured, belongs, [task] { task.cancel(); }});
    auto end = task.valueOfOwnWork();
    co_return co_await std::move(end);
}

template <class T>
platform::Awaitable<T> Account::Session::onStorage(std::function<T(SessionStore&)> work) const
{
    auto job = [](std::shared_ptr<SessionStore> store,
                  std::function<T(SessionStore&)> what) -> Awaitable<T> { co_return what(*store); };
    return platform::runOn<T>(services.storage, job(store_, std::move(work)));
}

}  // namespace tessera
