#pragma once

#include "Platform/Coding/JSONReader.hpp"

#include <cstdint>
#include <optional>
#include <string>

#include <boost/describe/class.hpp>

namespace codingextras
{

/// One JSON value, read as an integer and as a text. Any value decodes: a Boolean, a fraction,
/// null, an array and an object leave both absent, and a text of digits is a text. Whole numbers
/// such as `1.0` are integers, those beyond 64 bits are not. Cannot be encoded. A plain value.
struct DecodableValue
{
    std::optional<std::int64_t> intValue;
    std::optional<std::string> stringValue;

    bool operator==(const DecodableValue&) const = default;
};

BOOST_DESCRIBE_STRUCT(DecodableValue, (), (intValue, stringValue))

}  // namespace codingextras

/// Never throws for a value that is JSON.
template <>
struct platform::JSONCoding<codingextras::DecodableValue>
{
    static codingextras::DecodableValue decode(const JSONReader& json)
    {
        return {json.tryInteger(),
                json.tryText() ? std::optional<std::string>(*json.tryText()) : std::nullopt};
    }
};
