#pragma once

#include "Platform/Concurrency/RunLoop.hpp"
#include "tools/shared/Interrupts.hpp"

#include <memory>
#include <optional>

namespace commandline
{

/// Runs `work` to its end on the main thread. Ctrl-C cancels it; a signal that came before cancels
/// it at once.
template <class T>
platform::Outcome<T> outcomeOf(const std::shared_ptr<platform::RunLoop>& loop,
                               Interrupts& interrupts, platform::Awaitable<T> work)
{
    std::optional<platform::Outcome<T>> outcome;
    const auto task =
        platform::start<T>(platform::executorOf(loop), std::move(work),
                           [&outcome](platform::Outcome<T> end) { outcome = std::move(end); });
    interrupts.onSignal([task] { task.cancel(); });
    loop->runUntil([&outcome] { return outcome.has_value(); });
    interrupts.onSignal(nullptr);
    return std::move(*outcome);
}

}  // namespace commandline
