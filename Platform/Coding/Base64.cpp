#include "Platform/Coding/Base64.hpp"

#include <array>
#include <cstdint>

#include "Platform/Basics/Fatal.hpp"

namespace platform
{
namespace
{

constexpr std::string_view standardAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view urlAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

/// The six bits of each character, or a value with the top bit set.
using Table = std::array<std::uint8_t, 256>;
constexpr std::uint8_t notInAlphabet = 0x80;

constexpr void enter(Table& table, std::string_view alphabet)
{
    for (std::size_t bits = 0; bits < alphabet.size(); ++bits)
        table[static_cast<unsigned char>(alphabet[bits])] = static_cast<std::uint8_t>(bits);
}

constexpr Table makeTable(bool withURLAlphabet)
{
    Table table{};
    table.fill(notInAlphabet);
    enter(table, standardAlphabet);
    if (withURLAlphabet)
        enter(table, urlAlphabet);
    return table;
}

constexpr Table standardTable = makeTable(false);
constexpr Table urlTable = makeTable(true);

/// Decodes what stands before the padding: any number of characters but one above a multiple of
/// four. Returns false if one of them is not in the alphabet.
bool decodeBody(const Table& table, std::string_view body, std::byte* out)
{
    const auto* in = reinterpret_cast<const unsigned char*>(body.data());
    const auto* const whole = in + body.size() / 4 * 4;
    std::uint32_t seen = 0;
    for (; in != whole; in += 4, out += 3)
    {
        const std::uint32_t a = table[in[0]], b = table[in[1]], c = table[in[2]], d = table[in[3]];
        seen |= a | b | c | d;
        const std::uint32_t bits = a << 18 | b << 12 | c << 6 | d;
        out[0] = static_cast<std::byte>(bits >> 16);
        out[1] = static_cast<std::byte>(bits >> 8);
        out[2] = static_cast<std::byte>(bits);
    }
    const std::size_t rest = body.size() % 4;
    if (rest >= 2)
    {
        const std::uint32_t a = table[in[0]], b = table[in[1]];
        const std::uint32_t c = rest == 3 ? table[in[2]] : 0;
        seen |= a | b | c;
        out[0] = static_cast<std::byte>(a << 2 | b >> 4);
        if (rest == 3)
            out[1] = static_cast<std::byte>(b << 4 | c >> 2);
    }
    return (seen & notInAlphabet) == 0;
}

/// `text` followed by `added` further "=", as strict base64 over the table's alphabet.
std::optional<std::size_t> decode(const Table& table, std::string_view text, std::size_t added,
                                  std::span<std::byte> out)
{
    if (out.size() < base64DecodedCapacity(text.size()))
        fatal("Too little room for decoded base64");
    const std::size_t length = text.find_last_not_of('=') + 1;
    const std::size_t padding = text.size() - length + added;
    if (padding > 2 || (length + padding) % 4 != 0)
        return std::nullopt;
    if (!decodeBody(table, text.substr(0, length), out.data()))
        return std::nullopt;
    return (length + padding) / 4 * 3 - padding;
}

std::string encode(std::string_view alphabet, std::span<const std::byte> bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const std::byte byte : bytes)
    {
        bits = bits << 8 | std::to_integer<std::uint32_t>(byte);
        for (count += 8; count >= 6; count -= 6)
            text += alphabet[bits >> (count - 6) & 63];
    }
    if (count > 0)
        text += alphabet[bits << (6 - count) & 63];
    return text;
}

template <class Decode>
std::optional<std::vector<std::byte>> toVector(std::string_view text, Decode decodeInto)
{
    std::vector<std::byte> bytes(base64DecodedCapacity(text.size()));
    const std::optional<std::size_t> size = decodeInto(text, std::span(bytes));
    if (!size)
        return std::nullopt;
    bytes.resize(*size);
    return bytes;
}

}  // namespace

std::optional<std::size_t> decodeBase64(std::string_view text, std::span<std::byte> out)
{
    return decode(standardTable, text, 0, out);
}

std::optional<std::size_t> decodeBase64URL(std::string_view text, std::span<std::byte> out)
{
    return decode(urlTable, text, (4 - text.size() % 4) % 4, out);
}

std::optional<std::vector<std::byte>> decodeBase64(std::string_view text)
{
    return toVector(text, [](auto characters, auto out) { return decodeBase64(characters, out); });
}

std::optional<std::vector<std::byte>> decodeBase64URL(std::string_view text)
{
    return toVector(text,
                    [](auto characters, auto out) { return decodeBase64URL(characters, out); });
}

std::string encodeBase64(std::span<const std::byte> bytes)
{
    std::string text = encode(standardAlphabet, bytes);
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

std::string encodeBase64URL(std::span<const std::byte> bytes)
{
    return encode(urlAlphabet, bytes);
}

}  // namespace platform
