#include "tests/soak/Value.hpp"

#include "tests/soak/Random.hpp"

#include <algorithm>
#include <cstring>

namespace soak
{
namespace
{

constexpr std::size_t shortest = 16;
constexpr std::size_t longest = 64 * 1024;

std::uint64_t hash(std::string_view text)
{
    std::uint64_t state = 0xcbf29ce484222325;
    for (const unsigned char byte : text)
        state = (state ^ byte) * 0x100000001b3;
    return state;
}

/// Short ones mostly, as in life, some that need many pages.
std::size_t lengthOf(Random& random)
{
    switch (random.below(8))
    {
        case 0:
            return shortest + random.below(longest - shortest);
        case 1:
            return longest;
        case 2:
            return shortest;
        default:
            return shortest + random.below(2000);
    }
}

}  // namespace

platform::SecretBytes makeValue(std::string_view key, std::uint64_t number)
{
    Random random(hash(key) ^ (number * 0x9e3779b97f4a7c15));
    platform::SecretBytes value;
    value.resize(lengthOf(random));
    const auto bytes = value.mutableView();
    std::memcpy(bytes.data(), &number, sizeof number);
    for (std::size_t at = sizeof number; at < bytes.size(); at += sizeof number)
    {
        const auto filling = random.any();
        std::memcpy(bytes.data() + at, &filling, std::min(sizeof filling, bytes.size() - at));
    }
    return value;
}

std::optional<std::uint64_t> numberOf(std::string_view key, const platform::SecretBytes& value)
{
    std::uint64_t number = 0;
    if (value.size() < sizeof number)
        return std::nullopt;
    std::memcpy(&number, value.view().data(), sizeof number);
    return makeValue(key, number) == value ? std::optional(number) : std::nullopt;
}

}  // namespace soak
