#pragma once

#include <cstdint>
#include <variant>

namespace tessera
{

/// How long to wait before the next try.
struct RetryDelay
{
    std::uint64_t nanoseconds = 0;

    /// The longest delay that there is, where the product does not fit.
    static RetryDelay seconds(std::uint64_t count);

    bool operator==(const RetryDelay&) const = default;
};

/// What to do after a failure: wait and try again, or give up.
class RetryAction
{
public:
    static RetryAction backoff(RetryDelay delay) { return RetryAction(delay); }
    static RetryAction stop() { return RetryAction(std::monostate()); }

    /// The delay, or null for `stop`.
    const RetryDelay* delay() const noexcept { return std::get_if<RetryDelay>(&action_); }

    bool operator==(const RetryAction&) const = default;

private:
    explicit RetryAction(std::variant<RetryDelay, std::monostate> action) : action_(action) {}

    std::variant<RetryDelay, std::monostate> action_;
};

}  // namespace tessera
