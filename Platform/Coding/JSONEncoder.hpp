#pragma once

#include <string>

#include "Platform/Coding/JSONCoding.hpp"
#include "Platform/Coding/JSONDescribed.hpp"
#include "Platform/Coding/JSONWriter.hpp"

namespace platform
{

/// Turns any type that has a `JSONCoding` into JSON without white space; dates are seconds since
/// 1970. Has no state and may be used on any thread. Throws `EncodingError`.
struct JSONEncoder
{
    /// Appends to `sink`, anything with `append(std::string_view)`. This is the form for secrets:
    /// with a sink that is wiped, nothing of them stays behind.
    template <class T, class Sink>
    void encode(const T& value, Sink& sink) const
    {
        JSONWriter writer(sink);
        writer.value(value);
    }

    template <class T>
    std::string encode(const T& value) const
    {
        std::string json;
        encode(value, json);
        return json;
    }
};

}  // namespace platform
