#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Basics/Date.hpp"

namespace platform
{

/// Reads dates that are written after a pattern of Unicode's locale data (UTS #35), such as
/// "yyyy-MM-dd'T'HH:mm:ss.SSSZ".
///
/// Neither the host's locale nor its time zone plays a part: names and digits are those of the
/// root locale, and a text without an offset is in UTC. A value out of its range (hour 24, month
/// 0, year 10000) is refused, never carried over. A pattern that cannot be compiled is a
/// programming error.
///
/// A small handle on shared state that never changes; copies may be used on several threads at
/// once.
class DateFormat
{
public:
    explicit DateFormat(std::string_view pattern);

    /// The moment, or nothing if the text as a whole does not follow the pattern.
    std::optional<Date> parse(std::string_view text) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace platform
