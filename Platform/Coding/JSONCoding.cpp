#include "Platform/Coding/JSONCoding.hpp"

#include <cstddef>
#include <string_view>

namespace platform
{
namespace
{

constexpr std::size_t uuidCharacters = 36;

constexpr bool isHyphenPlace(std::size_t place)
{
    return place == 8 || place == 13 || place == 18 || place == 23;
}

/// The value of a hexadecimal digit, or nothing. Not the C library's: its answer depends on the
/// host's locale.
std::optional<std::uint8_t> hexadecimal(char character)
{
    if (character >= '0' && character <= '9')
        return static_cast<std::uint8_t>(character - '0');
    const char lower = static_cast<char>(character | 0x20);
    if (lower >= 'a' && lower <= 'f')
        return static_cast<std::uint8_t>(lower - 'a' + 10);
    return std::nullopt;
}

std::optional<boost::uuids::uuid> parseUUID(std::string_view text)
{
    if (text.size() != uuidCharacters)
        return std::nullopt;
    boost::uuids::uuid uuid{};
    std::size_t digits = 0;
    for (std::size_t place = 0; place < text.size(); ++place)
    {
        if (isHyphenPlace(place))
        {
            if (text[place] != '-')
                return std::nullopt;
            continue;
        }
        const auto digit = hexadecimal(text[place]);
        if (!digit)
            return std::nullopt;
        std::uint8_t& byte = uuid.data[digits++ / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | *digit);
    }
    return uuid;
}

}  // namespace

boost::uuids::uuid JSONCoding<boost::uuids::uuid>::decode(const JSONReader& json)
{
    if (const auto uuid = parseUUID(json.text()))
        return *uuid;
    throw json.dataCorrupted();
}

void JSONCoding<boost::uuids::uuid>::encode(const boost::uuids::uuid& value, JSONWriter& json)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : value)
    {
        if (isHyphenPlace(text.size()))
            text += '-';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    json.text(text);
}

}  // namespace platform
