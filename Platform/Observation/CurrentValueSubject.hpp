#pragma once

#include "Platform/Observation/Publisher.hpp"

#include <boost/signals2/signal.hpp>

#include <cstdint>
#include <deque>
#include <memory>

namespace platform
{

/// A value that its owner changes and others follow. Everything happens on the owner's thread.
///
/// Each value that is sent, equal to the last or not, reaches each subscriber exactly once and in
/// order. One that a handler sends from within its call waits until all have heard the one before.
/// Nothing is delivered any more once the subject is gone.
template <class T>
class CurrentValueSubject
{
public:
    explicit CurrentValueSubject(T initial) : core_(std::make_shared<Core>(std::move(initial))) {}
    ~CurrentValueSubject() { core_->closed = true; }
    CurrentValueSubject(const CurrentValueSubject&) = delete;
    CurrentValueSubject& operator=(const CurrentValueSubject&) = delete;

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
        return Publisher<T>([held = std::weak_ptr(core_)](typename Publisher<T>::Handler handler)
                            { return subscribe(held.lock(), std::move(handler)); });
    }

private:
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

        T value;
        /// What has been sent and not yet delivered; the last of it is number `sent`.
        std::deque<T> waiting;
        std::uint64_t sent = 0;
        bool delivering = false;
        bool closed = false;
        Signal signal;
    };

    static Subscription subscribe(const std::shared_ptr<Core>& core,
                                  typename Publisher<T>::Handler handler)
    {
        if (!core || core->closed)
            return {};
        // Whoever subscribes while others are being told has the newest value already.
        const auto known = core->sent;
        auto connection = core->signal.connect(
            [core = core.get(), handler, known](const T& value, std::uint64_t number)
            {
                if (number > known && !core->closed)
                    handler(value);
            });
        Subscription subscription([connection] { connection.disconnect(); });
        const T current = core->value;
        [&]() noexcept { handler(current); }();
        return subscription;
    }

    std::shared_ptr<Core> core_;
};

}  // namespace platform
