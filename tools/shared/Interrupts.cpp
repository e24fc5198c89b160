#include "tools/shared/Interrupts.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "tools/shared/Event.hpp"

#include <boost/asio/signal_set.hpp>

#include <poll.h>
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
    explicit State(const platform::Executor& executor) : signals(executor, SIGINT, SIGTERM) {}

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
        event.happen();
        const std::lock_guard lock(mutex);
        if (handler)
            handler();
    }

    boost::asio::signal_set signals;
    const Event event;
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
    return state_->event.descriptor();
}

void Interrupts::waitForInput(int input, const std::stop_token& ended) const
{
    const Event stop;
    const std::stop_callback onStop(ended, [&stop] { stop.happen(); });
    pollfd waiting[] = {
        {input, POLLIN, 0}, {descriptor(), POLLIN, 0}, {stop.descriptor(), POLLIN, 0}};
    while (::poll(waiting, 3, -1) < 0)
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");
    if (waiting[1].revents != 0 || waiting[2].revents != 0)
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
