#include "CodingExtras/PropertyValue.hpp"

#include <string_view>

namespace codingextras::detail
{
namespace
{

std::any ownedText(const char* text)
{
    return text ? std::any(std::string(text)) : std::any();
}

}  // namespace

std::optional<std::int64_t> integerIn(const std::any& value) noexcept
{
    std::optional<std::int64_t> found;
    const auto take = [&](const auto* held)
    {
        if (held)
            found = *held;
    };
    take(std::any_cast<long>(&value));
    take(std::any_cast<int>(&value));
    take(std::any_cast<long long>(&value));
    take(std::any_cast<short>(&value));
    take(std::any_cast<signed char>(&value));
    return found;
}

std::any owned(std::any value)
{
    if (const auto* view = std::any_cast<std::string_view>(&value))
        return std::string(*view);
    if (const auto* text = std::any_cast<const char*>(&value))
        return ownedText(*text);
    if (char* const* text = std::any_cast<char*>(&value))
        return ownedText(*text);
    return value;
}

}  // namespace codingextras::detail
