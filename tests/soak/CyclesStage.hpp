#pragma once

#include "Platform/Basics/LocalizedError.hpp"
#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Concurrency/WorkerThread.hpp"

#include <boost/asio/post.hpp>

#include <chrono>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <string>

namespace soak
{

/// One call of a host to an account.
struct CyclesCall
{
    std::string name;
    unsigned ends = 0;
    std::exception_ptr error = {};
    std::function<void()> cancel = {};

    bool hasEnded() const { return ends != 0; }
    bool hasSucceeded() const { return ends == 1 && !error; }

    /// How it ended, for messages.
    std::string end() const
    {
        if (ends != 1 || !error)
            return name + " ended " + std::to_string(ends) + " times";
        try
        {
            std::rethrow_exception(error);
        }
        catch (const std::exception& thrown)
        {
            return name + " threw " + thrown.what();
        }
    }
};

/// The main thread of the programs, the calls that they make there, and real time. For the thread
/// that made it.
class CyclesStage
{
public:
    const std::shared_ptr<platform::RunLoop>& loop() const { return loop_; }

    /// Begins a call on the main thread or, `elsewhere`, on another: hosts may await where they
    /// like.
    template <class T>
    std::shared_ptr<CyclesCall> begin(std::string name, platform::Awaitable<T> work,
                                      bool elsewhere = false)
    {
        auto call = calls_.emplace_back(std::make_shared<CyclesCall>());
        call->name = std::move(name);
        auto onEnd = [loop = loop_, call](platform::Outcome<T> outcome)
        {
            loop->enqueue(
                [call, error = outcome.error()]
                {
                    ++call->ends;
                    call->error = error;
                });
        };
        const auto task = platform::start<T>(elsewhere ? elsewhere_ : platform::executorOf(loop_),
                                             std::move(work), std::move(onEnd));
        call->cancel = [task] { task.cancel(); };
        return call;
    }

    /// Lets the main thread work until it holds; false when it does not in time.
    bool runUntil(const std::function<bool()>& holds, std::chrono::microseconds limit)
    {
        // In slices, for what holds may also change without a piece of work here.
        constexpr std::chrono::microseconds slice = std::chrono::milliseconds(20);
        const auto end = std::chrono::steady_clock::now() + limit;
        bool held = holds();
        while (!held && std::chrono::steady_clock::now() < end)
        {
            const auto over = std::make_shared<bool>(false);
            const auto span = std::chrono::nanoseconds(std::min(slice, limit)).count();
            const auto timer =
                platform::start<void>(platform::executorOf(loop_), clock_->sleep(span),
                                      [over](const platform::Outcome<void>&) { *over = true; });
            loop_->runUntil([&] { return (held = holds()) || *over; });
            timer.cancel();
        }
        return held;
    }

    /// What was handed to other threads, and came back from there, has been done.
    void drain(const platform::Executor& executor)
    {
        const auto back = std::make_shared<bool>(false);
        boost::asio::post(executor,
                          [back, loop = loop_] { loop->enqueue([back] { *back = true; }); });
        loop_->runUntil([&] { return *back; });
    }

    /// The calls since the last `forgetCalls`.
    const std::list<std::shared_ptr<CyclesCall>>& calls() const { return calls_; }
    void forgetCalls() { calls_.clear(); }

private:
    const std::shared_ptr<platform::RunLoop> loop_ = std::make_shared<platform::RunLoop>();
    platform::WorkerThread worker_;
    const platform::Executor elsewhere_ = worker_.executor();
    const std::shared_ptr<platform::Clock> clock_ = platform::systemClock(elsewhere_);
    std::list<std::shared_ptr<CyclesCall>> calls_;
};

}  // namespace soak
