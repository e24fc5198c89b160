#pragma once

#include <compare>
#include <functional>

namespace platform
{

/// A moment: seconds since 1970-01-01 00:00:00 UTC, fractions allowed.
///
/// A `double` on purpose: tokens may carry any JSON number, and nanoseconds in 64 bits would wrap.
struct Date
{
    double secondsSince1970 = 0;

    friend constexpr Date operator+(Date date, double seconds)
    {
        return {date.secondsSince1970 + seconds};
    }
    /// The seconds from `right` to `left`.
    friend constexpr double operator-(Date left, Date right)
    {
        return left.secondsSince1970 - right.secondsSince1970;
    }
    auto operator<=>(const Date&) const = default;
};

inline std::size_t hash_value(Date date)
{
    return std::hash<double>{}(date.secondsSince1970);
}

}  // namespace platform
