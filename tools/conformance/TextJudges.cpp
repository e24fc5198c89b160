#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Coding/Text.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/Model/AccountAPIVersion.hpp"
#include "Tessera/Model/AccountClient.hpp"
#include "tools/conformance/Judge.hpp"

#include <unicode/uchar.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <cstdint>

namespace conformance
{
namespace
{

namespace json = boost::json;
using json::object;
using nettasks::AsyncURLSessionDataTaskDecodingError;

/// The bytes as the text of a rejected answer's body.
std::string textOfRejectedBody(std::string_view bytes)
{
    constexpr int internalServerError = 500;
    const platform::SecretBytes body(asBytes(bytes));
    const platform::URLResponse response{
        .url = platform::URL::parse("https://account.example/").value(),
        .status = internalServerError};
    try
    {
        nettasks::check<tessera::AccountRemoteError>(body, response);
    }
    catch (const AsyncURLSessionDataTaskDecodingError& error)
    {
        return error.body();
    }
    throw std::logic_error("a rejected answer was accepted");
}

Verdict judgeRepair(std::string_view bytes, std::string_view expected)
{
    const std::string repaired = platform::repairedUTF8(bytes);
    if (repaired != expected)
        return Verdict::failed(shownAsHex(expected), shownAsHex(repaired));
    const std::string body = textOfRejectedBody(bytes);
    return Verdict::passedIf(body == expected, shownAsHex(expected) + " in a rejected body",
                             shownAsHex(body));
}

Verdict judgeReplacement(const object& record, const object&)
{
    const std::string bytes = bytesFromHex(textOf(record, "inHex"));
    const bool valid = record.at("valid").as_bool();
    if (platform::isValidUTF8(bytes) != valid)
        return Verdict::failed(valid ? "well-formed" : "ill-formed",
                               valid ? "ill-formed" : "well-formed");
    return judgeRepair(bytes, bytesFromHex(textOf(record, "outHex")));
}

std::string utf8(const json::array& codePoints)
{
    std::string bytes;
    for (const auto& value : codePoints)
    {
        const auto point = value.to_number<std::uint32_t>();
        if (point < 0x80)
        {
            bytes += static_cast<char>(point);
            continue;
        }
        const int following = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
        constexpr unsigned char first[] = {0, 0xC0, 0xE0, 0xF0};
        bytes += static_cast<char>(first[following] | point >> 6 * following);
        for (int left = following - 1; left >= 0; --left)
            bytes += static_cast<char>(0x80 | (point >> 6 * left & 0x3F));
    }
    return bytes;
}

Verdict judgeUTF8(const object& record, const object&)
{
    return judgeRepair(bytesOf(record.at("bytes").as_array()), utf8(record.at("text").as_array()));
}

std::string nameFromBytes(const object& record)
{
    return shownAsHex(bytesOf(record.at("bytes").as_array()));
}

Verdict judgeCapitalized(const object& record, const object&)
{
    tessera::AccountClient client;
    client.identifier = textOf(record, "text");
    client.version = "7.2";
    client.device = {.model = "PC", .systemVersion = "12.0.0"};
    const auto found = client.userAgent(tessera::AccountEnvironment::Distribution::direct);
    std::string expected(textOf(record, "capitalized"));
    expected += "/7.2 Account/";
    expected += platform::rawValue(tessera::AccountAPIVersion::rhubarb);
    expected += " (PC; 12.0.0; Direct)";
    return Verdict::passedIf(found == expected, shown(expected), shown(found));
}

/// Whether this machine's tables are older than the Unicode version "15.1".
bool isNewerThanTables(std::string_view version)
{
    UVersionInfo tables, needed;
    u_getUnicodeVersion(tables);
    u_versionFromString(needed, std::string(version).c_str());
    return std::ranges::lexicographical_compare(tables, needed);
}

std::string counted(std::size_t count, std::string_view text)
{
    std::string both = std::to_string(count);
    both += " characters, ";
    return both += shown(text);
}

Verdict judgeCharacters(const object& record, const object&)
{
    const std::string text(textOf(record, "text"));
    const auto count = record.at("count").to_number<std::size_t>();
    const auto expected = textOf(record, "description");
    const auto foundCount = platform::characterCount(text);
    const auto found =
        AsyncURLSessionDataTaskDecodingError::errorTypeMismatch(text).errorDescription();
    if (foundCount == count && found == expected)
        return Verdict::passed();
    if (record.contains("since") && isNewerThanTables(textOf(record, "since")))
        return Verdict::notApplicable();
    return Verdict::failed(counted(count, expected), counted(foundCount, found));
}

constexpr Judge judges[] = {{"utf8_replacement.json", nameFromID, judgeReplacement},
                            {"utf8.json", nameFromBytes, judgeUTF8},
                            {"capitalized.json", nameFromText, judgeCapitalized},
                            {"characters.json", nameFromText, judgeCharacters}};

}  // namespace

std::span<const Judge> textJudges()
{
    return judges;
}

}  // namespace conformance
