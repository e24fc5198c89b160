#pragma once

#include <optional>
#include <utility>

#include "Platform/Coding/DateFormat.hpp"

namespace platform
{

/// How a date is written in JSON.
class DateDecodingStrategy
{
public:
    /// A number: seconds since 1970-01-01 00:00:00 UTC, fractions allowed.
    static DateDecodingStrategy secondsSince1970() { return DateDecodingStrategy(std::nullopt); }

    /// A text that follows the format.
    static DateDecodingStrategy formatted(DateFormat format)
    {
        return DateDecodingStrategy(std::move(format));
    }

    /// The format of texts, nothing for seconds.
    const std::optional<DateFormat>& format() const noexcept { return format_; }

private:
    explicit DateDecodingStrategy(std::optional<DateFormat> format) : format_(std::move(format)) {}

    std::optional<DateFormat> format_;
};

/// How the keys of a JSON object are read.
enum class KeyDecodingStrategy
{
    useDefaultKeys,
    /// As if "accepted_revision" were "acceptedRevision".
    convertFromSnakeCase,
};

}  // namespace platform
