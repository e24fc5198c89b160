#include "tools/tessera/keychain/Escaping.hpp"

#include "Platform/Coding/Text.hpp"

#include <charconv>

namespace commandline
{
namespace
{

bool isControl(unsigned char byte)
{
    return byte < 0x20 || byte == 0x7F;
}

/// Where U+0080 to U+009F, control characters of two bytes, begin.
bool startsLongControl(std::string_view text)
{
    return text.size() >= 2 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) < 0xA0;
}

void appendByte(std::string& out, char c)
{
    constexpr char digits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    out += "\\x";
    out += digits[byte >> 4];
    out += digits[byte & 15];
}

}  // namespace

std::string escaped(std::string_view text)
{
    const bool valid = platform::isValidUTF8(text);
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (text[i] == '\\')
            out += "\\\\";
        else if (isControl(byte) || (!valid && byte >= 0x80))
            appendByte(out, text[i]);
        else if (startsLongControl(text.substr(i)))
        {
            appendByte(out, text[i]);
            appendByte(out, text[++i]);
        }
        else
            out += text[i];
    }
    return out;
}

std::optional<std::string> unescaped(std::string_view text)
{
    std::string out;
    while (!text.empty())
    {
        const auto backslash = text.find('\\');
        out += text.substr(0, backslash);
        if (backslash == std::string_view::npos)
            break;
        text.remove_prefix(backslash + 1);
        if (text.starts_with('\\'))
        {
            out += '\\';
            text.remove_prefix(1);
            continue;
        }
        unsigned char byte = 0;
        const auto* digits = text.data() + 1;
        if (text.size() < 3 || text[0] != 'x' ||
            std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2)
            return std::nullopt;
        out += static_cast<char>(byte);
        text.remove_prefix(3);
    }
    return out;
}

bool isPlainText(std::string_view text)
{
    if (!platform::isValidUTF8(text))
        return false;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        if (isControl(static_cast<unsigned char>(c)) && c != '\n' && c != '\t')
            return false;
        if (startsLongControl(text.substr(i)))
            return false;
    }
    return true;
}

}  // namespace commandline
