#include "Tessera/API/Backoff.hpp"

#include "Platform/Basics/Fatal.hpp"

#include <limits>

namespace tessera
{
namespace
{

std::uint64_t saturatedProduct(std::uint64_t left, std::uint64_t right)
{
    constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
    return right != 0 && left > largest / right ? largest : left * right;
}

}  // namespace

RetryDelay RetryDelay::seconds(std::uint64_t count)
{
    return {saturatedProduct(count, 1'000'000'000)};
}

RetryDelay ExponentialBackoffIterator::next()
{
    const auto current = duration;
    duration.nanoseconds = saturatedProduct(duration.nanoseconds, factor);
    return current;
}

ExponentialBackoffStrategy::ExponentialBackoffStrategy(std::uint64_t factor, RetryDelay initial)
    : factor_(factor), initial_(initial)
{
    if (factor == 0)
        platform::fatal("The factor of an exponential backoff must not be zero");
}

}  // namespace tessera
