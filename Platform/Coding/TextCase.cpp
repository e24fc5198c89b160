#include <algorithm>
#include <cstdint>

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Coding/Text.hpp"

namespace platform
{
namespace
{

enum class Letter
{
    first,
    later,
};

/// Appends one character in title or lower case. Each is mapped by itself, because what stands
/// around it plays no part: a sigma at the end of a word stays a plain one.
void appendMapped(std::string& out, std::string_view character, Letter letter)
{
    const icu::StringPiece source(character.data(), static_cast<std::int32_t>(character.size()));
    icu::StringByteSink<std::string> sink(&out);
    UErrorCode status = U_ZERO_ERROR;
    if (letter == Letter::first)
        icu::CaseMap::utf8ToTitle("", U_TITLECASE_WHOLE_STRING | U_TITLECASE_NO_BREAK_ADJUSTMENT,
                                  nullptr, source, sink, nullptr, status);
    else
        icu::CaseMap::utf8ToLower("", 0, source, sink, nullptr, status);
    if (U_FAILURE(status))
        fatal("ICU cannot map the case of a character");
}

bool isApostrophe(UChar32 character)
{
    return character == U'\'' || character == U'\u2019';
}

bool isLetterOrMark(UChar32 character)
{
    return (U_GET_GC_MASK(character) & (U_GC_L_MASK | U_GC_M_MASK)) != 0;
}

std::string lowercased(std::string_view text)
{
    std::string lower;
    const auto size = static_cast<std::int32_t>(text.size());
    for (std::int32_t next = 0; next < size;)
    {
        const std::int32_t start = next;
        U8_FWD_1(text.data(), next, size);
        appendMapped(lower, text.substr(start, next - start), Letter::later);
    }
    return lower;
}

}  // namespace

std::string capitalized(std::string_view text)
{
    std::string result;
    Letter letter = Letter::first;
    const auto size = static_cast<std::int32_t>(text.size());
    for (std::int32_t next = 0; next < size;)
    {
        const std::int32_t start = next;
        UChar32 character = 0;
        U8_NEXT_OR_FFFD(text.data(), next, size, character);
        appendMapped(result, text.substr(start, next - start), letter);
        if (!isApostrophe(character))
            letter = isLetterOrMark(character) ? Letter::later : Letter::first;
    }
    return result;
}

std::string convertedFromSnakeCase(std::string_view key)
{
    const std::size_t begin = key.find_first_not_of('_');
    if (begin == std::string_view::npos)
        return std::string(key);
    const std::size_t end = key.find_last_not_of('_') + 1;
    std::string_view words = key.substr(begin, end - begin);
    if (words.find('_') == std::string_view::npos)
        return std::string(key);

    std::string result(key.substr(0, begin));
    bool first = true;
    while (!words.empty())
    {
        const std::size_t length = std::min(words.find('_'), words.size());
        const std::string_view word = words.substr(0, length);
        result += first ? lowercased(word) : capitalized(word);
        first = false;
        words.remove_prefix(std::min(length + 1, words.size()));
    }
    return result.append(key.substr(end));
}

}  // namespace platform
