#include "tools/tessera/Interrupts.hpp"

#include "Platform/Concurrency/CancellationError.hpp"

#include <boost/asio/signal_set.hpp>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <system_error>

namespace commandline
{

struct Interrupts::State
{
    explicit State(const platform::Executor& executor)
        : signals(executor, SIGINT, SIGTERM), event(::eventfd(0, EFD_CLOEXEC))
    {
        if (event < 0)
            throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    ~State() { ::close(event); }

    static void wait(const std::shared_ptr<State>& state)
    {
        state->signals.async_wait(
            [state](const boost::system::error_code& error, int number)
            {
                if (error)
                    return;
                state->take(number);
                wait(state);
            });
    }

    void take(int number)
    {
        if (caught.exchange(number) != 0)
            ::_exit(128 + number);
        const std::uint64_t one = 1;
        // It cannot fail: the counter is far from its end.
        [[maybe_unused]] const auto written = ::write(event, &one, sizeof one);
        const std::lock_guard lock(mutex);
        if (handler)
            handler();
    }

    boost::asio::signal_set signals;
    const int event;
    std::atomic<int> caught = 0;
    std::mutex mutex;
    std::function<void()> handler;
};

Interrupts::Interrupts(const platform::Executor& executor)
    : state_(std::make_shared<State>(executor))
{
    State::wait(state_);
}

Interrupts::~Interrupts()
{
    onSignal(nullptr);
}

int Interrupts::signal() const
{
    return state_->caught;
}

int Interrupts::descriptor() const
{
    return state_->event;
}

void Interrupts::waitForInput(int input) const
{
    pollfd waiting[] = {{input, POLLIN, 0}, {descriptor(), POLLIN, 0}};
    while (::poll(waiting, 2, -1) < 0)
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");
    if (waiting[1].revents != 0)
        throw platform::CancellationError();
}

void Interrupts::onSignal(std::function<void()> handler)
{
    const std::lock_guard lock(state_->mutex);
    state_->handler = std::move(handler);
    if (state_->handler && signal() != 0)
        state_->handler();
}

}  // namespace commandline
