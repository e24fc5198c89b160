#pragma once

#include "Platform/Concurrency/RunLoop.hpp"
#include "tools/tessera/Interrupts.hpp"

#include <memory>
#include <optional>
#include <string>

namespace commandline
{

/// Tells a person at a terminal, on standard error, that something takes long: a line that appears
/// after half a second, counts the seconds, and is gone when this object is.
class Waiting
{
public:
    Waiting(std::shared_ptr<platform::RunLoop> loop, std::string what);
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    struct Line;

    std::shared_ptr<platform::RunLoop> loop_;
    std::shared_ptr<Line> line_;
    std::optional<platform::Task<void>> task_;
};

/// Runs `work` to its end on the main thread. Ctrl-C cancels it; a signal that came before cancels
/// it at once.
template <class T>
platform::Outcome<T> outcomeOf(const std::shared_ptr<platform::RunLoop>& loop,
                               Interrupts& interrupts, std::string what,
                               platform::Awaitable<T> work)
{
    const Waiting waiting(loop, std::move(what));
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
