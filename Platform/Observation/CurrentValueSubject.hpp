#pragma once

#include "Platform/Observation/Publisher.hpp"

#include <boost/signals2/signal.hpp>

#include <cstdint>
#include <deque>
#include <memory>
#include <utility>

namespace platform
{

/// A value that its owner changes and others follow. Everything happens on the owner's thread.
///
/// Each value that is sent, equal to the last or not, reaches each subscriber exactly once and in
/// order. One that a handler sends from within its call waits until all have heard the one before.
/// Nothing is delivered any more once the subject is closed or gone.
template <class T>
class CurrentValueSubject
{
public:
    explicit CurrentValueSubject(T initial) : core_(std::make_shared<Core>(std::move(initial))) {}
    ~CurrentValueSubject() { close(); }
    CurrentValueSubject(const CurrentValueSubject&) = delete;
    CurrentValueSubject& operator=(const CurrentValueSubject&) = delete;

    /// Nothing is delivered after this, not even to the rest of those who are being told now.
    void close() noexcept { core_->closed = true; }

    /// The last value that was sent; handlers may not have heard of it yet.
    const T& value() const noexcept { return core_->value; }

    void send(T value)
    {
        // Held, because a handler may end the subject.
        const auto core = core_;
        core->value = std::move(value);
        core->waiting.push_back(core->value);
        ++core->sent;
        core->deliver();
    }

    Publisher<T> publisher() const
    {
        return Publisher<T>([held = std::weak_ptr(core_)](Handler handler)
                            { return subscribe(held.lock(), std::move(handler)); });
    }

private:
    using Handler = typename Publisher<T>::Handler;
    using Signal = boost::signals2::signal<void(const T&, std::uint64_t)>;

    struct Core
    {
        explicit Core(T initial) : value(std::move(initial)) {}

        void deliver() noexcept
        {
            if (delivering)
                return;
            delivering = true;
            while (!waiting.empty() && !closed)
            {
                const T next = std::move(waiting.front());
                waiting.pop_front();
                signal(next, sent - waiting.size());
            }
            delivering = false;
        }

        /// The first call of a handler is a delivery too: what it sends waits for its end.
        void begin(const Handler& handler) noexcept
        {
            const T current = value;
            const bool nested = std::exchange(delivering, true);
            handler(current);
            delivering = nested;
            deliver();
        }

        T value;
        /// What has been sent and not yet delivered; the last of it is number `sent`.
        std::deque<T> waiting;
        std::uint64_t sent = 0;
        bool delivering = false;
        bool closed = false;
        Signal signal;
    };

    static Subscription subscribe(const std::shared_ptr<Core>& core, Handler handler)
    {
        if (!core || core->closed)
            return {};
        // One for all calls, since a handler may keep something of its own.
        const auto shared = std::make_shared<const Handler>(std::move(handler));
        // Whoever subscribes while others are being told has the newest value already.
        const auto known = core->sent;
        const auto connection = core->signal.connect(
            [core = core.get(), shared, known](const T& value, std::uint64_t number)
            {
                if (number > known && !core->closed)
                    (*shared)(value);
            });
        Subscription subscription([connection] { connection.disconnect(); });
        core->begin(*shared);
        return subscription;
    }

    std::shared_ptr<Core> core_;
};

}  // namespace platform
