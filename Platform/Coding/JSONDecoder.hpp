#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "Platform/Coding/DecodingError.hpp"
#include "Platform/Coding/JSONCoding.hpp"
#include "Platform/Coding/JSONDecodingStrategy.hpp"
#include "Platform/Coding/JSONDescribed.hpp"
#include "Platform/Coding/JSONDocument.hpp"
#include "Platform/Coding/JSONReader.hpp"

namespace platform
{

/// Turns JSON (RFC 8259, UTF-8) into any type that has a `JSONCoding`.
///
/// A value with two settings. Decoding changes nothing in it, so that one decoder may be used on
/// several threads at once. Throws `DecodingError`; the first fault in the order of the record's
/// fields is the one that is told.
struct JSONDecoder
{
    DateDecodingStrategy dateDecodingStrategy = DateDecodingStrategy::secondsSince1970();
    KeyDecodingStrategy keyDecodingStrategy = KeyDecodingStrategy::useDefaultKeys;

    template <class T>
    T decode(std::span<const std::byte> json) const
    {
        const detail::JSONDocument document(json, keyDecodingStrategy, dateDecodingStrategy);
        return JSONReader(document).template decode<T>();
    }

    template <class T>
    T decode(std::string_view json) const
    {
        return decode<T>(std::as_bytes(std::span(json)));
    }
};

}  // namespace platform
