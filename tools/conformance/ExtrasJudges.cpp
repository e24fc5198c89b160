#include "CodingExtras/CustomPropertiesContainer.hpp"
#include "CodingExtras/DictionaryCodingKey.hpp"
#include "Platform/Basics/Date.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "tools/conformance/Judge.hpp"

#include <boost/json/parse.hpp>

#include <cstdint>
#include <limits>
#include <map>
#include <string>

namespace conformance
{
namespace
{

namespace json = boost::json;
using codingextras::CustomPropertiesContainer;
using codingextras::DictionaryCodingKey;
using json::object;

/// A key is made from the integer where the case has one, and otherwise from the text.
Verdict judgeKey(const object& record, const object&)
{
    const std::string text(textOf(record, "text"));
    const json::value* integer = record.if_contains("integer");
    const DictionaryCodingKey key =
        integer ? DictionaryCodingKey(std::stoll(std::string(integer->as_string())))
                : DictionaryCodingKey(text);
    const bool keepsInteger = key.intValue().has_value() == (integer != nullptr) &&
                              (!integer || std::to_string(*key.intValue()) == text);
    if (!keepsInteger)
        return Verdict::failed("the integer that it was made from, or none", key.description());
    return Verdict::passedIf(key.stringValue() == text, shown(text), shown(key.stringValue()));
}

/// The values that the data file tells by their kind.
const std::any& valueOfKind(std::string_view kind)
{
    using Limits = std::numeric_limits<std::int64_t>;
    static const std::map<std::string_view, std::any> values{
        {"text", std::string("x")},
        {"integer", 1},
        {"true", true},
        {"whole fraction", 1.0},
        {"date", platform::Date{}},
        {"object", CustomPropertiesContainer::Properties{{"k", 1}}},
        {"null", nullptr},
        {"UInt", 1u},
        {"Float", 1.0f},
        {"largest", Limits::max()},
        {"smallest", Limits::min()}};
    return values.at(kind);
}

/// Equal as JSON values; the bytes may differ.
Verdict judgeProperty(const object& record, const object&)
{
    const CustomPropertiesContainer container{{"k", valueOfKind(textOf(record, "why"))}};
    const std::string found = platform::JSONEncoder().encode(container);
    const auto expected = textOf(record, "json");
    boost::system::error_code notJSON;
    const json::value value = json::parse(found, notJSON);
    return Verdict::passedIf(!notJSON && value == json::parse(expected), expected, found);
}

std::string nameFromKind(const object& record)
{
    return std::string(textOf(record, "why"));
}

constexpr Judge judges[] = {{"codingkeys.json", nameFromText, judgeKey},
                            {"properties.json", nameFromKind, judgeProperty}};

}  // namespace

std::span<const Judge> extrasJudges()
{
    return judges;
}

}  // namespace conformance
