#pragma once

#include "Platform/Concurrency/Awaitable.hpp"

#include <functional>
#include <memory>
#include <stop_token>

namespace commandline
{

/// Ctrl-C and SIGTERM, taken as a wish to end what runs now. A second one ends the process at once.
///
/// Made once, in `main`; used from the main thread.
class Interrupts
{
public:
    /// Signals are told of on `executor`.
    explicit Interrupts(const platform::Executor& executor);
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// The signal that came, or 0.
    int signal() const;

    /// Readable once a signal came: for `poll`.
    int descriptor() const;

    /// Waits until `input` can be read. Throws `platform::CancellationError` after a signal, and
    /// when `ended` is asked to stop.
    void waitForInput(int input, const std::stop_token& ended = {}) const;

    /// From now until it is set again, a signal calls `handler`, on any thread; one that came
    /// before calls it now.
    void onSignal(std::function<void()> handler);

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace commandline
