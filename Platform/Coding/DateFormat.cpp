#include "Platform/Coding/DateFormat.hpp"

#include <mutex>

#include <unicode/smpdtfmt.h>

#include "Platform/Basics/Fatal.hpp"

namespace platform
{
namespace
{

// ICU reads any number of digits as a year, and a fifth one is a slip rather than a date.
constexpr Date yearTenThousand{253402300800};

icu::UnicodeString utf16(std::string_view text)
{
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

}  // namespace

struct DateFormat::State
{
    State(std::string_view pattern, UErrorCode& status)
        : format(utf16(pattern), icu::Locale::getRoot(), status)
    {
        format.adoptTimeZone(icu::TimeZone::getGMT()->clone());
        format.setLenient(false);
    }

    // What a formatter of ICU does to its own members while it reads is not ours to rely on.
    std::mutex mutex;
    icu::SimpleDateFormat format;
};

DateFormat::DateFormat(std::string_view pattern)
{
    UErrorCode status = U_ZERO_ERROR;
    state_ = std::make_shared<State>(pattern, status);
    if (U_FAILURE(status))
        fatal("The date pattern cannot be compiled");
}

std::optional<Date> DateFormat::parse(std::string_view text) const
{
    constexpr std::size_t longest = 256;
    if (text.size() > longest)
        return std::nullopt;
    const icu::UnicodeString characters = utf16(text);
    icu::ParsePosition position(0);

    const std::scoped_lock lock(state_->mutex);
    const UDate milliseconds = state_->format.parse(characters, position);
    const Date date{milliseconds / 1000};
    if (position.getErrorIndex() >= 0 || position.getIndex() != characters.length() ||
        date >= yearTenThousand)
        return std::nullopt;
    return date;
}

}  // namespace platform
