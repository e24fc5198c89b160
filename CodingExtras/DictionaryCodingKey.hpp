#pragma once

#include "CodingExtras/PropertyValue.hpp"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <boost/container_hash/hash.hpp>

namespace codingextras
{

/// A key of a JSON object that may be any text, or any integer in decimal. It never fails to be
/// made. A plain value; a key made from 7 is not equal to one made from "7".
class DictionaryCodingKey
{
public:
    explicit DictionaryCodingKey(std::string stringValue) : stringValue_(std::move(stringValue)) {}

    template <SignedInteger T>
    explicit DictionaryCodingKey(T intValue)
        : intValue_(intValue), stringValue_(std::to_string(intValue))
    {}

    /// Absent for a key made from a text, be it one of digits.
    const std::optional<std::int64_t>& intValue() const noexcept { return intValue_; }
    const std::string& stringValue() const noexcept { return stringValue_; }

    /// `DictionaryCodingKey(stringValue: "7", intValue: 7)`, "nil" where there is no integer. Keys
    /// come from outside: for a developer's eyes.
    std::string description() const;
    std::string debugDescription() const { return description(); }

    auto operator<=>(const DictionaryCodingKey&) const = default;
    friend std::size_t hash_value(const DictionaryCodingKey& key) noexcept
    {
        std::size_t seed = boost::hash<std::string>()(key.stringValue_);
        boost::hash_combine(seed, key.intValue_.has_value());
        return seed;
    }

private:
    std::optional<std::int64_t> intValue_;
    std::string stringValue_;
};

}  // namespace codingextras
