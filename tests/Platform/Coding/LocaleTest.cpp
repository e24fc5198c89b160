#include <cstdlib>

#include <time.h>

#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <gtest/gtest.h>

#include "Platform/Coding/Text.hpp"
#include "tests/Platform/Coding/Records.hpp"
#include "tests/support/GermanLocale.hpp"

namespace
{

using platform::Date;
using platform::DateFormat;

constexpr auto responsePattern = "yyyy-MM-dd'T'HH:mm:ss.SSSZ";

/// A host with Turkish letters, decimal commas and a time zone far from Greenwich.
class ForeignHost
{
public:
    ForeignHost()
    {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(icu::Locale("tr_TR@calendar=buddhist;numbers=arab"), status);
        icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("Pacific/Kiritimati"));
        setenv("TZ", "Pacific/Kiritimati", 1);
        tzset();
    }
    ForeignHost(const ForeignHost&) = delete;
    ForeignHost& operator=(const ForeignHost&) = delete;
    ~ForeignHost()
    {
        unsetenv("TZ");
        tzset();
        icu::TimeZone::adoptDefault(icu::TimeZone::getGMT()->clone());
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(icu::Locale("en_US_POSIX"), status);
    }

private:
    const GermanLocale german_;
};

TEST(HostLocale, ChangesNoNumberNoDateAndNoLetter)
{
    const ForeignHost host;

    EXPECT_EQ(platform::JSONEncoder().encode(std::vector{1234567.5, 1e6}), "[1.2345675E6,1000000]");
    EXPECT_EQ(platform::JSONDecoder().decode<double>("1234567.5"), 1234567.5);
    EXPECT_EQ(DateFormat(responsePattern).parse("2026-10-17T12:34:56.789+0000"),
              Date{1792240496.789});
    EXPECT_EQ(DateFormat("yyyy-MM-dd HH:mm").parse("1970-01-01 00:01"), Date{60});
    EXPECT_EQ(platform::capitalized("istanbul IS"), "Istanbul Is");
    EXPECT_EQ(platform::convertedFromSnakeCase("ID_in"), "idIn");
}

TEST(DateFormat, ReadsTheResponseFormatAndRefusesEveryOther)
{
    const struct
    {
        std::string_view text;
        std::optional<Date> date;
    } cases[] = {
        {"2026-10-17T12:34:56.789+0000", Date{1792240496.789}},
        {"2026-10-17T12:34:56.789+00:00", Date{1792240496.789}},
        {"2026-10-17T12:34:56.789-0330", Date{1792253096.789}},
        {"2024-02-29T00:00:00.000+0000", Date{1709164800}},
        {"1969-12-31T23:59:59.999+0000", Date{-0.001}},
        {"2023-02-29T00:00:00.000+0000", {}},
        {"2026-10-17T24:00:00.000+0000", {}},
        {"2026-10-32T00:00:00.000+0000", {}},
        {"2026-10-17T12:34:56.789+2500", {}},
        {"2026-10-17T12:34:56+0000", {}},
        {"2026-10-17T12:34:56.789+0000x", {}},
        {"12026-10-17T12:34:56.789+0000", {}},
        {"", {}},
    };
    const DateFormat format(responsePattern);

    for (const auto& each : cases)
        EXPECT_EQ(format.parse(each.text), each.date) << each.text;
}

}  // namespace
