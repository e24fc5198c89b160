#pragma once

#include <functional>
#include <utility>

namespace platform
{

/// Keeps a handler subscribed for as long as it lives. Moved, never copied; an empty one keeps
/// nothing.
class [[nodiscard]] Subscription
{
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> end) : end_(std::move(end)) {}
    Subscription(Subscription&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept
    {
        // The old one ends last, so that an assignment to itself keeps it.
        if (const auto old = std::exchange(end_, std::exchange(other.end_, nullptr)))
            old();
        return *this;
    }
    ~Subscription() { cancel(); }

    /// Ends it early. A handler that is being called finishes, and is not called again.
    void cancel() noexcept
    {
        if (const auto end = std::exchange(end_, nullptr))
            end();
    }

private:
    std::function<void()> end_;
};

}  // namespace platform
