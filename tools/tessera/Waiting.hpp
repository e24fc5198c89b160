#pragma once

#include "Platform/Concurrency/RunLoop.hpp"
#include "tools/shared/Interrupts.hpp"
#include "tools/shared/Running.hpp"

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
    return outcomeOf<T>(loop, interrupts, std::move(work));
}

}  // namespace commandline
