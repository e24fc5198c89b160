#include "tools/shared/Terminal.hpp"

#include "Platform/Coding/Text.hpp"

#include <unistd.h>

#include <cstdlib>

namespace commandline
{
namespace
{

bool isSet(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

const char* sequence(Style style)
{
    switch (style)
    {
        case Style::heading:
            return "\x1B[1m";
        case Style::label:
            return "\x1B[2m";
        case Style::good:
            return "\x1B[32m";
        case Style::warning:
            return "\x1B[33m";
        case Style::error:
            return "\x1B[1;31m";
    }
    return "";
}

}  // namespace

bool isTerminal(int descriptor)
{
    return ::isatty(descriptor) == 1;
}

bool canAsk()
{
    return isTerminal(STDIN_FILENO) && isTerminal(STDERR_FILENO);
}

bool movesCursor(int descriptor)
{
    const char* terminal = std::getenv("TERM");
    const bool dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return isTerminal(descriptor) && !dumb;
}

bool takesColours(int descriptor)
{
    return movesCursor(descriptor) && !isSet("NO_COLOR");
}

std::string printable(std::string_view text)
{
    std::string clean;
    for (const char c : platform::repairedUTF8(text))
    {
        const auto byte = static_cast<unsigned char>(c);
        // U+0080 to U+009F are control characters too: C2 80 to C2 9F in UTF-8.
        if (byte >= 0x80 && byte < 0xA0 && clean.ends_with('\xC2'))
            clean.back() = '?';
        else
            clean += byte < 0x20 ? ' ' : byte == 0x7F ? '?' : c;
    }
    return clean;
}

std::string asSentence(std::string text)
{
    if (!text.empty() && !text.ends_with('.'))
        text += '.';
    return text;
}

std::string styled(std::string text, Style style, bool colours)
{
    return colours ? sequence(style) + text + "\x1B[0m" : text;
}

}  // namespace commandline
