#include "Platform/Security/SecretService/ItemAttributes.hpp"

#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

#include <gtest/gtest.h>

using namespace platform;

namespace
{

TEST(SecretItemAttributes, EachTextHasOneEscapedForm)
{
    const std::pair<std::string, std::string> forms[] = {{"", ""},
                                                         {std::string("\0", 1), "%00"},
                                                         {"%00", "%2500"},
                                                         {std::string("a%\0b", 4), "a%25%00b"}};
    for (const auto& [plain, escaped] : forms)
    {
        EXPECT_EQ(secretItem::escaped(plain), escaped);
        EXPECT_EQ(secretItem::unescaped(escaped), plain);
    }
    for (const char* other : {"%", "%0", "%41", "%2", "a%2x", "%%25"})
        EXPECT_FALSE(secretItem::unescaped(other)) << other;
    EXPECT_THROW(secretItem::escaped("\xFF"), SecretServiceFailure);
}

TEST(SecretItemAttributes, ATextThatIsNotOneOfOursIsNoItem)
{
    const auto read = [](std::string_view text)
    {
        KeychainItem item;
        return secretItem::readSealedText(SecretBytes(std::as_bytes(std::span(text))), item);
    };

    EXPECT_TRUE(read("1:2:16:YQ=="));
    for (const char* text : {"", "1", "1:2", "1:2:16", "2:2:16:YQ==", "1:3:16:YQ==", "1:2:3:YQ==",
                             "1:2:16:YQ=", "1:2:16:Y", "1:2:16:YQ==\n", "1:02:16:YQ==", "YQ=="})
        EXPECT_FALSE(read(text)) << text;
}

TEST(SecretItemAttributes, AnItemWithAMissingOrForeignAttributeIsRefused)
{
    const KeychainItem item{{"s", std::string("\0", 1), "g", true},
                            KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock,
                            AccessControlFlag::devicePasscode,
                            {}};
    const auto all = secretItem::attributes(item);

    EXPECT_EQ(secretItem::parsed(all), item);
    for (const auto& [key, value] : all)
    {
        auto changed = all;
        changed[key] = "%";
        EXPECT_FALSE(secretItem::parsed(changed)) << key;
        changed.erase(key);
        EXPECT_FALSE(secretItem::parsed(changed)) << key;
    }
}

}  // namespace
