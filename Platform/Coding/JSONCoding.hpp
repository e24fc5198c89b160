#pragma once

#include <algorithm>
#include <concepts>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/uuid/uuid.hpp>

#include "Platform/Basics/Date.hpp"
#include "Platform/Coding/JSONReader.hpp"
#include "Platform/Coding/JSONWriter.hpp"

namespace platform
{

/// JSON for the types of the language and its library: `bool`, integers, `double`, text, lists,
/// optional values, and for UUIDs and dates. All throw what `JSONReader` says.

template <>
struct JSONCoding<bool>
{
    static bool decode(const JSONReader& json) { return json.boolean(); }
    static void encode(bool value, JSONWriter& json) { json.boolean(value); }
};

/// Integers of up to 64 bits, signed; `dataCorrupted` for a number that does not fit.
template <std::integral T>
    requires(!std::same_as<T, char>)
struct JSONCoding<T>
{
    static T decode(const JSONReader& json)
    {
        const std::int64_t value = json.integer();
        if (!std::in_range<T>(value))
            throw json.dataCorrupted();
        return static_cast<T>(value);
    }
    static void encode(T value, JSONWriter& json)
    {
        static_assert(std::signed_integral<T> || sizeof(T) < sizeof(std::int64_t));
        json.integer(value);
    }
};

template <>
struct JSONCoding<double>
{
    static double decode(const JSONReader& json) { return json.number(); }
    static void encode(double value, JSONWriter& json) { json.number(value); }
};

template <>
struct JSONCoding<std::string>
{
    static std::string decode(const JSONReader& json) { return std::string(json.text()); }
    static void encode(const std::string& value, JSONWriter& json) { json.text(value); }
};

template <>
struct JSONCoding<Date>
{
    static Date decode(const JSONReader& json) { return json.date(); }
    /// Seconds since 1970.
    static void encode(Date value, JSONWriter& json) { json.number(value.secondsSince1970); }
};

/// A text of exactly 36 characters with hyphens, letters in either case; written in capitals.
template <>
struct JSONCoding<boost::uuids::uuid>
{
    static boost::uuids::uuid decode(const JSONReader& json);
    static void encode(const boost::uuids::uuid& value, JSONWriter& json);
};

/// Null is nothing. As a member of a record, an absent one is nothing too and nothing is left out.
template <class T>
struct JSONCoding<std::optional<T>>
{
    static std::optional<T> decode(const JSONReader& json)
    {
        if (json.isNull())
            return std::nullopt;
        return json.decode<T>();
    }
    static void encode(const std::optional<T>& value, JSONWriter& json)
    {
        if (value)
            json.value(*value);
        else
            json.null();
    }
};

template <class T>
struct JSONCoding<std::vector<T>>
{
    static std::vector<T> decode(const JSONReader& json)
    {
        std::vector<T> values;
        for (const JSONReader element : json.elements())
            values.push_back(element.decode<T>());
        return values;
    }
    static void encode(const std::vector<T>& values, JSONWriter& json)
    {
        json.beginArray();
        for (const T& value : values)
            json.value(value);
        json.endArray();
    }
};

}  // namespace platform
