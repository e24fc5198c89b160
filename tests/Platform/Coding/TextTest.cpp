#include "Platform/Coding/Text.hpp"

#include <gtest/gtest.h>

namespace
{

constexpr std::string_view replacement = "\xEF\xBF\xBD";

TEST(Text, ReplacesEachMaximalIllFormedPartOnce)
{
    const struct
    {
        std::string_view bytes;
        /// U+FFFD stands for itself.
        std::string_view text;
    } cases[] = {
        {"", ""},
        {"plain ASCII of more than eight bytes", "plain ASCII of more than eight bytes"},
        {"é ก 😀", "é ก 😀"},
        {"12345678\x80", "12345678\uFFFD"},
        {"a\xC0\xAFz", "a\uFFFD\uFFFDz"},
        {"a\xE2\x82z", "a\uFFFDz"},
        {"\xE2\x82\xE2\x82\xAC", "\uFFFD€"},
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9F\x98", "\uFFFD"},
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xFF\xFE", "\uFFFD\uFFFD"},
    };

    for (const auto& each : cases)
    {
        EXPECT_EQ(platform::repairedUTF8(each.bytes), each.text);
        EXPECT_EQ(platform::isValidUTF8(each.bytes), each.bytes == each.text);
    }
    EXPECT_EQ(platform::findIllFormedUTF8("ab\xE2\x82z").offset, 2U);
    EXPECT_EQ(platform::findIllFormedUTF8("ab\xE2\x82z").size, 2U);
    EXPECT_EQ(platform::repairedUTF8("\xF8"), replacement);
}

TEST(Text, CountsUserPerceivedCharacters)
{
    const struct
    {
        std::string_view text;
        std::size_t count;
    } cases[] = {
        {"", 0},     {"abc", 3}, {"e\u0301", 1}, {"\r\n", 1}, {"👩‍👩‍👧‍👦", 1},
        {"🇩🇪🇫🇷", 2}, {"각", 1},  {"é😀", 2}};

    for (const auto& each : cases)
        EXPECT_EQ(platform::characterCount(each.text), each.count) << each.text;
}

TEST(Text, IsCutAfterCharactersNeverInsideOne)
{
    const std::string family = "👩‍👩‍👧‍👦";
    EXPECT_EQ(platform::abbreviated("", 3), "");
    EXPECT_EQ(platform::abbreviated("abc", 3), "abc");
    EXPECT_EQ(platform::abbreviated("abcd", 3), "abc…");
    EXPECT_EQ(platform::abbreviated("e\u0301e\u0301e\u0301", 3), "e\u0301e\u0301e\u0301");
    EXPECT_EQ(platform::abbreviated(family + family, 1), family + "…");
    EXPECT_EQ(platform::abbreviated("a", 0), "…");
}

TEST(Text, CapitalisesEveryWord)
{
    const struct
    {
        std::string_view text, capitalized;
    } cases[] = {
        {"", ""},
        {"editor", "Editor"},
        {"ALL CAPS", "All Caps"},
        {"my_editor.two-go", "My_Editor.Two-Go"},
        {"1st2nd", "1St2Nd"},
        {"o'neill o’neill", "O'neill O’neill"},
        {"'quoted", "'Quoted"},
        {"e\u0301cole", "E\u0301cole"},
        {"ßtraße", "Sstraße"},
        {"ŉx", "ʼNx"},
        {"ǆungla", "ǅungla"},
        {"ΣΊΣΥΦΟΣ", "Σίσυφοσ"},
        {"İSTANBUL ıs", "İstanbul Is"},
    };

    for (const auto& each : cases)
        EXPECT_EQ(platform::capitalized(each.text), each.capitalized);
}

TEST(Text, ConvertsKeysFromSnakeCase)
{
    const struct
    {
        std::string_view key, converted;
    } cases[] = {
        {"", ""},
        {"_", "_"},
        {"already", "already"},
        {"oneTwo", "oneTwo"},
        {"ONE", "ONE"},
        {"accepted_revision", "acceptedRevision"},
        {"__one_two_", "__oneTwo_"},
        {"ONE_TWO", "oneTwo"},
        {"oneTwo_three", "onetwoThree"},
        {"one__two", "oneTwo"},
        {"éa_éb", "éaÉb"},
    };

    for (const auto& each : cases)
        EXPECT_EQ(platform::convertedFromSnakeCase(each.key), each.converted);
}

}  // namespace
