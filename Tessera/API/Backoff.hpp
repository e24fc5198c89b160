#pragma once

#include "Tessera/API/RetryDelay.hpp"

#include <concepts>

namespace tessera
{

/// Gives one waiting time after the other, without end.
template <class Iterator>
concept BackoffIterator = requires(Iterator iterator) {
    { iterator.next() } -> std::same_as<RetryDelay>;
};

/// A reusable description of waiting times: each run of retries takes an iterator of its own.
template <class Strategy>
concept BackoffStrategy = requires(const Strategy strategy) {
    { strategy.makeIterator() } -> BackoffIterator;
};

/// The next delay of an `ExponentialBackoffStrategy`, and the ones after it.
struct ExponentialBackoffIterator
{
    std::uint64_t factor;
    /// What `next` returns.
    RetryDelay duration;

    RetryDelay next();

    bool operator==(const ExponentialBackoffIterator&) const = default;
};

/// `initial`, and after it each delay `factor` times the one before, up to the largest that there
/// is. A factor of zero stops the process.
class ExponentialBackoffStrategy
{
public:
    ExponentialBackoffStrategy(std::uint64_t factor, RetryDelay initial);

    std::uint64_t factor() const noexcept { return factor_; }
    RetryDelay initial() const noexcept { return initial_; }

    ExponentialBackoffIterator makeIterator() const { return {factor_, initial_}; }

    bool operator==(const ExponentialBackoffStrategy&) const = default;

private:
    std::uint64_t factor_;
    RetryDelay initial_;
};

/// The strategies that come with the framework.
namespace Backoff
{
/// See `ExponentialBackoffStrategy`.
inline ExponentialBackoffStrategy exponential(std::uint64_t factor, RetryDelay initial)
{
    return {factor, initial};
}
}  // namespace Backoff

}  // namespace tessera
