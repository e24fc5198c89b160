#pragma once

#include <algorithm>
#include <string_view>

namespace platform
{

/// Lower case of ASCII alone: the host's locale has no say in what a header is called.
constexpr char lowerCase(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
}

/// Whether two header names are the same (RFC 9110, section 5.1).
constexpr bool sameName(std::string_view left, std::string_view right)
{
    return std::ranges::equal(left, right, {}, lowerCase, lowerCase);
}

/// What names of headers and methods are made of (RFC 9110, section 5.6.2).
constexpr bool isTokenCharacter(char character)
{
    const char lower = lowerCase(character);
    return (lower >= 'a' && lower <= 'z') || character == '-' ||
           (character >= '0' && character <= '9') ||
           std::string_view("!#$%&'*+.^_`|~").find(character) != std::string_view::npos;
}

constexpr bool isToken(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

}  // namespace platform
