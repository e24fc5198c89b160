#include "Platform/Concurrency/Clock.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Concurrency/Continuation.hpp"

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include <algorithm>
#include <chrono>

namespace platform
{
namespace
{

/// One wait of the system's clock. All fields belong to the strand.
class SystemWait : public std::enable_shared_from_this<SystemWait>
{
public:
    SystemWait(const Executor& executor, std::uint64_t nanoseconds, std::function<void()> fire)
        : strand_(boost::asio::make_strand(executor)),
          timer_(strand_),
          remaining_(nanoseconds),
          fire_(std::move(fire))
    {}

    void start()
    {
        boost::asio::post(strand_, [self = shared_from_this()] { self->waitOn(); });
    }

    void stop()
    {
        boost::asio::post(strand_,
                          [self = shared_from_this()]
                          {
                              self->fire_ = nullptr;
                              self->timer_.cancel();
                          });
    }

private:
    void waitOn()
    {
        // Longer waits than the signed clock holds are made of several.
        constexpr std::uint64_t longest = 1'000'000'000ULL * 60 * 60 * 24 * 365;
        if (!fire_)
            return;
        const auto step = std::min(remaining_, longest);
        remaining_ -= step;
        timer_.expires_after(std::chrono::nanoseconds(step));
        timer_.async_wait([self = shared_from_this()](auto) { self->ended(); });
    }

    void ended()
    {
        if (remaining_ > 0)
            waitOn();
        else if (auto fire = std::exchange(fire_, nullptr))
            fire();
    }

    boost::asio::strand<Executor> strand_;
    boost::asio::steady_timer timer_;
    std::uint64_t remaining_;
    std::function<void()> fire_;
};

class SystemClock final : public Clock
{
public:
    explicit SystemClock(Executor executor) : executor_(std::move(executor)) {}

    Date now() const override
    {
        const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
        return {std::chrono::duration<double>(sinceEpoch).count()};
    }

private:
    struct SystemTimer final : Timer
    {
        explicit SystemTimer(std::shared_ptr<SystemWait> ofWait) : wait(std::move(ofWait)) {}
        ~SystemTimer() override { wait->stop(); }

        std::shared_ptr<SystemWait> wait;
    };

    std::shared_ptr<Timer> schedule(std::uint64_t nanoseconds, std::function<void()> fire) override
    {
        auto wait = std::make_shared<SystemWait>(executor_, nanoseconds, std::move(fire));
        wait->start();
        return std::make_shared<SystemTimer>(std::move(wait));
    }

    Executor executor_;
};

}  // namespace

Awaitable<void> Clock::sleep(std::uint64_t nanoseconds)
{
    // The timer lives in this frame, as long as the caller waits.
    auto timer = std::make_shared<std::shared_ptr<Timer>>();
    auto start = [this, nanoseconds, timer](std::shared_ptr<Continuation<void>> caller)
    {
        *timer = schedule(nanoseconds, [caller] { caller->resume(std::monostate()); });
        std::weak_ptr<Continuation<void>> waiting = caller;
        caller->onCancel(
            [waiting]
            {
                if (auto alive = waiting.lock())
                    alive->resume(std::make_exception_ptr(CancellationError()));
            });
    };
    auto wait = suspendCaller<void>(std::move(start));
    co_await std::move(wait);
}

std::shared_ptr<Clock> systemClock(Executor executor)
{
    return std::make_shared<SystemClock>(std::move(executor));
}

}  // namespace platform
