#include "Platform/Coding/Base64.hpp"

#include <gtest/gtest.h>

namespace
{

std::optional<std::string> text(const std::optional<std::vector<std::byte>>& bytes)
{
    if (!bytes)
        return std::nullopt;
    return std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size());
}

TEST(Base64, IsStrictInAlphabetAndPaddingButNotInUnusedBits)
{
    const struct
    {
        std::string_view encoded;
        std::optional<std::string> decoded;
    } cases[] = {
        {"", ""},
        {"QUJDRA==", "ABCD"},
        {"QUJDREU=", "ABCDE"},
        {"QU+/", "AO\xBF"},
        {"QR==", "A"},
        {"QUJ=", "AB"},
        {"QQ=", {}},
        {"Q===", {}},
        {"QUJD====", {}},
        {"QQ==QUJD", {}},
        {"QU-_", {}},
        {"QUJD\n", {}},
        {"QUJ\xC3", {}},
        {std::string_view("QU\0D", 4), {}},
    };

    for (const auto& each : cases)
        EXPECT_EQ(text(platform::decodeBase64(each.encoded)), each.decoded) << each.encoded;
}

TEST(Base64URL, FillsUpByTheLengthAndIsThenStandardBase64)
{
    const struct
    {
        std::string_view encoded;
        std::optional<std::string> decoded;
    } cases[] = {
        {"", ""},
        {"QUJDRA", "ABCD"},
        {"QUJDREU", "ABCDE"},
        {"QU+/", "AO\xBF"},
        {"QUJDRA==", "ABCD"},
        // One of two "=" is there, and one is added.
        {"QUJDRA=", "ABCD"},
        // Two are there, and two more are too many.
        {"QUJD==", {}},
        {"Q", {}},
        {"=", {}},
        {"QUJDRA\n", {}},
        {"QU.D", {}},
    };

    for (const auto& each : cases)
        EXPECT_EQ(text(platform::decodeBase64URL(each.encoded)), each.decoded) << each.encoded;
}

TEST(Base64, EncodesWhatDecodesToTheSameBytes)
{
    std::vector<std::byte> bytes;
    for (unsigned length = 0; length < 70; ++length)
    {
        const std::string standard = platform::encodeBase64(bytes);
        const std::string url = platform::encodeBase64URL(bytes);

        EXPECT_EQ(platform::decodeBase64(standard), bytes);
        EXPECT_EQ(platform::decodeBase64URL(url), bytes);
        EXPECT_EQ(url.find_first_of("+/="), std::string::npos);
        bytes.push_back(static_cast<std::byte>(255 - 3 * length));
    }
    EXPECT_EQ(platform::encodeBase64(std::as_bytes(std::span("A\xFF\xBE", 4))), "Qf++AA==");
    EXPECT_EQ(platform::encodeBase64URL(std::as_bytes(std::span("A\xFF\xBE", 4))), "Qf--AA");
}

TEST(Base64DeathTest, TooLittleRoomIsAProgrammingError)
{
    std::byte room[4];
    EXPECT_DEATH((void)platform::decodeBase64("QUJD", room), "Too little room");
}

}  // namespace
