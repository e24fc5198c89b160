#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "tools/conformance/Judge.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

namespace conformance
{
namespace
{

/// The first key of an object, as the decoder reads it.
struct FirstKey
{
    std::string text;
};

}  // namespace
}  // namespace conformance

template <>
struct platform::JSONCoding<conformance::FirstKey>
{
    static conformance::FirstKey decode(const JSONReader& json)
    {
        return {std::string(json.members().at(0).key)};
    }
};

namespace conformance
{
namespace
{

namespace json = boost::json;
using json::object;

Verdict judgeBase64(const object& record, const object&)
{
    const auto decoded = platform::decodeBase64(textOf(record, "text"));
    const std::string found =
        decoded ? std::string(reinterpret_cast<const char*>(decoded->data()), decoded->size())
                : std::string();
    const json::value& bytes = record.at("bytes");
    if (bytes.is_null())
        return Verdict::passedIf(!decoded, "refused", shownAsHex(found));
    const std::string expected = bytesOf(bytes.as_array());
    return Verdict::passedIf(decoded && found == expected, shownAsHex(expected),
                             decoded ? shownAsHex(found) : "refused");
}

Verdict judgeSnakeCase(const object& record, const object&)
{
    const platform::JSONDecoder decoder{.keyDecodingStrategy =
                                            platform::KeyDecodingStrategy::convertFromSnakeCase};
    const std::string text = json::serialize(object{{textOf(record, "key"), 1}});
    const auto found = decoder.decode<FirstKey>(std::string_view(text)).text;
    const auto expected = textOf(record, "converted");
    return Verdict::passedIf(found == expected, shown(expected), shown(found));
}

std::string nameFromKey(const object& record)
{
    return shown(textOf(record, "key"));
}

/// Equal as JSON values; the bytes may differ.
Verdict judgeEncoded(const object& record, const object&)
{
    const std::vector<std::string> texts{std::string(textOf(record, "text"))};
    const std::string found = platform::JSONEncoder().encode(texts);
    const auto expected = textOf(record, "json");
    boost::system::error_code notJSON;
    const json::value value = json::parse(found, notJSON);
    return Verdict::passedIf(!notJSON && value == json::parse(expected), expected, found);
}

constexpr Judge judges[] = {{"base64.json", nameFromText, judgeBase64},
                            {"snake.json", nameFromKey, judgeSnakeCase},
                            {"encoded.json", nameFromText, judgeEncoded}};

}  // namespace

std::span<const Judge> codingJudges()
{
    return judges;
}

}  // namespace conformance
