#pragma once

#include "Tessera/API/RetryDelay.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Concurrency/Awaitable.hpp"
#include "Platform/Concurrency/Clock.hpp"

#include <exception>
#include <functional>
#include <memory>
#include <utility>

namespace tessera
{

/// Runs `operation` up to `maxAttempts` times. After each failure but the last, `decision` gets the
/// error and says whether to wait and try again. What leaves is the operation's own last error, or
/// the cancellation that ended a wait. Fewer attempts than one stop the process.
template <class Result>
platform::Awaitable<Result> retry(int maxAttempts,
                                  std::function<platform::Awaitable<Result>()> operation,
                                  std::function<RetryAction(std::exception_ptr)> decision,
                                  std::shared_ptr<platform::Clock> clock)
{
    if (maxAttempts < 1)
        platform::fatal("An operation must be tried at least once");
    for (int attempt = 1;; ++attempt)
    {
        std::exception_ptr error;
        try
        {
            co_return co_await operation();
        }
        catch (...)
        {
            error = std::current_exception();
        }
        if (attempt == maxAttempts)
            std::rethrow_exception(error);
        const auto action = decision(error);
        if (!action.delay())
            std::rethrow_exception(error);
        co_await clock->sleep(action.delay()->nanoseconds);
    }
}

}  // namespace tessera
