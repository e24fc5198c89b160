#pragma once

#include "NetTasks/AsyncURLSessionTaskProtocol.hpp"
#include "Platform/Concurrency/RunLoop.hpp"

#include <memory>
#include <optional>

namespace fetch
{

/// Shows on standard error how a transfer goes: as a line that changes, where that is a terminal
/// which knows how to take a line back; as lines that stay, elsewhere; or not at all.
///
/// Everything happens on the main thread, ten times a second: the width of a terminal is asked for
/// each time, and a transfer that is faster than that shows nothing.
class ProgressDisplay
{
public:
    enum class Manner
    {
        none,
        lines,
        bar,
    };

    /// The manner that suits standard error.
    static Manner suitable(bool json, bool quiet);

    ProgressDisplay(std::shared_ptr<platform::RunLoop> loop, Manner manner);
    /// Takes the line back.
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    /// From now on shows this one.
    void follow(std::shared_ptr<nettasks::AsyncURLSessionTaskProtocol> task);

    /// The server answered `status`; the next attempt begins in so many seconds.
    void wait(int status, double seconds, int attempt);

private:
    struct State;

    std::shared_ptr<platform::RunLoop> loop_;
    std::shared_ptr<State> state_;
    std::optional<platform::Task<void>> task_;
};

}  // namespace fetch
