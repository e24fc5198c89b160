#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "Platform/Device/ResourceBundle.hpp"
#include "Tessera/Model/AccountClient.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Model/AccountState.hpp"
#include "Tessera/Tokens/JWTError.hpp"
#include "tests/support/ServicesForTest.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

using namespace tessera;

namespace
{

AccountInfo info(std::string_view json)
{
    return platform::JSONDecoder().decode<AccountInfo>(json);
}

constexpr std::string_view anonymousInfo =
    R"({"iat":1000.5,"aud":"editor.mac","user":"u","terms":{"accepted_revision":"1","current_revision":"1"}})";

AccountTokenJWT tokenJWT(std::string_view text)
{
    return {{}, {}, {}, platform::SecretString(text)};
}

AccountInfoJWT infoJWT(std::string_view text, std::optional<boost::uuids::uuid> uuid = {})
{
    AccountInfoJWT jwt{{}, info(anonymousInfo), {}, platform::SecretString(text)};
    jwt.payload.uuid = uuid;
    return jwt;
}

}  // namespace

TEST(AccountClient, TheAudienceFollowsThePrefixOfTheModel)
{
    const std::array<std::array<std::string, 2>, 4> cases{{{"iPhone15,2", "editor.iphone"},
                                                           {"iPad13,1", "editor.ipad"},
                                                           {"iphone15,2", "editor.mac"},
                                                           {"", "editor.mac"}}};
    for (const auto& [model, audience] : cases)
    {
        AccountClient client;
        client.identifier = "editor";
        client.device.model = model;
        EXPECT_EQ(client.audience(), audience) << model;
    }
}

TEST(AccountClient, TheUserAgentNamesClientChannelVersionAndDevice)
{
    using enum AccountReleaseChannel;
    using Distribution = AccountEnvironment::Distribution;
    AccountClient client;
    client.identifier = "my editor";
    client.version = "7.2";
    client.device = {"Mac14,2", "14.5.0"};
    const auto agent = [&](AccountReleaseChannel channel, Distribution distribution)
    {
        client.releaseChannel = channel;
        return client.userAgent(distribution);
    };

    EXPECT_EQ(agent(beta, Distribution::direct),
              "My Editor/7.2-beta Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Direct)");
    EXPECT_EQ(agent(public_, Distribution::apple),
              "My Editor/7.2 Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Apple)");
    EXPECT_EQ(agent(private_, Distribution::direct), agent(alpha, Distribution::direct));
}

TEST(AccountDevice, WhatTheSystemSaysCannotBreakTheUserAgent)
{
    const ServicesForTest services;
    const std::array<std::array<std::string, 2>, 4> cases{
        {{" Think(Pad); X1\r\nX-Evil: 1\x7F ", "ThinkPad X1X-Evil: 1"},
         {"Notebook \xC3\xA9t\xC3\xA9", "Notebook t"},
         {"\t\n", "Linux"},
         {"20XW0026GE", "20XW0026GE"}}};
    for (const auto& [said, kept] : cases)
    {
        services.device->deviceModel = said;
        EXPECT_EQ(AccountDevice::current(), (AccountDevice{kept, "1.2.3"}));
    }
    EXPECT_EQ(AccountDevice::current().userAgentString(), "20XW0026GE; 1.2.3");
}

TEST(AccountEnvironment, PresetsOfAServerShareItsKeyAndKeepItsKeychainItemsApart)
{
    const auto& direct = AccountEnvironment::directProduction();
    const auto& apple = AccountEnvironment::appleProduction();
    const auto& preview = AccountEnvironment::directPreview();

    for (const auto* preset : {&direct, &apple, &preview, &AccountEnvironment::applePreview()})
    {
        EXPECT_EQ(preset->jwtPublicKey.value.size(), 425u);
        EXPECT_EQ(preset->localizedName, preset->localizedKeychainIdentifier);
        for (const auto& url : {preset->endpointURL, preset->accountURL, preset->marketingURL})
        {
            EXPECT_TRUE(url.string().ends_with("/")) << url.string();
            EXPECT_EQ(url.scheme(), "https");
        }
    }
    EXPECT_EQ(direct.jwtPublicKey, apple.jwtPublicKey);
    EXPECT_NE(direct.jwtPublicKey, preview.jwtPublicKey);
    EXPECT_EQ(direct.localizedName, "Ostra Account");
    EXPECT_EQ(preview.localizedName, "Ostra Account Preview");
    EXPECT_NE(direct, apple);
}

TEST(AccountInfo, IsFreshUntilSixHoursHavePassedToTheSecond)
{
    const ServicesForTest services;
    auto record = info(anonymousInfo);
    const auto at = [&](double age)
    {
        services.clock->setNow(record.issuedAt + age);
        return record.freshness();
    };

    EXPECT_EQ(at(21'600), AccountInfoFreshnes::fresh);
    EXPECT_EQ(at(21'601), AccountInfoFreshnes::stale);
    EXPECT_EQ(at(21'600.001), AccountInfoFreshnes::stale);
    EXPECT_EQ(at(-86'400), AccountInfoFreshnes::fresh);
}

TEST(AccountInfo, IsAnonymousOnlyWithoutAnyAddressAndAsksConsentForAnyOtherRevision)
{
    const auto empty = info(
        R"({"iat":1,"aud":"a","user":"u","email":"","terms":{"accepted_revision":"r1","current_revision":"R1"},"more":[]})");

    EXPECT_TRUE(info(anonymousInfo).isAnonymous());
    EXPECT_FALSE(info(anonymousInfo).terms.needsConsent());
    EXPECT_FALSE(empty.isAnonymous());
    EXPECT_TRUE(empty.terms.needsConsent());
    EXPECT_EQ(empty.terms.preferredLanguage(), "en");
}

TEST(Records, EncodeBackToTheKeysTheyWereReadFrom)
{
    const std::string whole =
        R"({"iat":1000.5,"aud":"editor.mac","user":"u","uuid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","email":"a\"b@c","terms":{"accepted_revision":"1","current_revision":"2"}})";
    const auto encoded = platform::JSONEncoder().encode(info(whole));

    EXPECT_EQ(info(encoded), info(whole));
    EXPECT_EQ(encoded.find("issuedAt"), std::string::npos);
}

TEST(AccountState, TokenAndUserComeFromTheCasesThatHaveThem)
{
    boost::uuids::uuid uuid{};
    uuid.data[0] = 7;
    auto ofUser = tokenJWT("t");
    ofUser.payload.uuid = uuid;
    const std::tuple<AccountState, std::optional<platform::SecretString>,
                     std::optional<boost::uuids::uuid>>
        cases[] = {
            {AccountState::pending({ofUser, std::nullopt}), platform::SecretString("t"), {}},
            {AccountState::signedIn({tokenJWT("t"), infoJWT("i", uuid), {}}),
             platform::SecretString("t"), uuid},
            {AccountState::signedIn({ofUser, infoJWT("i"), {}}), platform::SecretString("t"), {}},
            {AccountState::failed("x"), {}, {}},
            {AccountState::signedOut(), {}, {}},
        };
    for (const auto& [state, token, user] : cases)
    {
        EXPECT_EQ(state.token(), token);
        EXPECT_EQ(state.uuid(), user);
    }
}

TEST(AccountState, EqualityAndHashFollowCaseAndContent)
{
    const auto profile = [](std::string_view ofInfo, AccountProfileSource source)
    { return AccountState::signedIn({tokenJWT("t"), infoJWT(ofInfo), source}); };
    const AccountState states[] = {
        AccountState::loading(),
        AccountState::failed("x"),
        AccountState::failed("y"),
        AccountState::pending({tokenJWT("t"), std::nullopt}),
        AccountState::pending({tokenJWT("t"), ""}),
        profile("i", AccountProfileSource::local),
        profile("i", AccountProfileSource::remote),
        profile("j", AccountProfileSource::local),
        AccountState::signedOut(),
    };
    for (const auto& one : states)
        for (const auto& other : states)
        {
            EXPECT_EQ(one == other, &one == &other);
            EXPECT_EQ(hash_value(one) == hash_value(other), &one == &other);
        }
    EXPECT_EQ(hash_value(states[5]), hash_value(profile("i", AccountProfileSource::local)));
}

TEST(StringTable, EveryKeyHasATextInEveryLanguage)
{
    const auto bundle =
        platform::ResourceBundle::find("net.ostra.Tessera", platform::systemResourceFolders());
    ASSERT_TRUE(bundle);
    for (const char* key :
         {"Account_Info_Load_Failed", "Account_Required_Error", "Alpha_Release_Channel",
          "Beta_Release_Channel", "Keychain_Access_Error", "Malformed_Token_Error",
          "Malformed_URL_Error", "Missing_Credentials_Error", "Private_Release_Channel",
          "Public_Release_Channel", "Stored_Session_Error", "Unknown_Error", "Verification_Error"})
    {
        const auto english = bundle->localizedString(key, "Tessera", {});
        const auto german = bundle->localizedString(key, "Tessera", {"de"});
        EXPECT_FALSE(english.empty()) << key;
        EXPECT_FALSE(german.empty()) << key;
        const bool sameInBoth =
            std::string_view(key).starts_with("Alpha") || std::string_view(key).starts_with("Beta");
        EXPECT_EQ(english == german, sameInBoth) << key;
    }
}

TEST(StringTable, ErrorsAndChannelsSpeakTheUsersLanguage)
{
    const ServicesForTest services;
    EXPECT_EQ(localizedTitle(AccountReleaseChannel::private_), "Private");
    services.device->languages = {"de-AT"};

    EXPECT_EQ(localizedTitle(AccountReleaseChannel::private_), "Privat");
    EXPECT_EQ(AccountError(AccountError::audienceMismatch).errorDescription(),
              JWTError(JWTError::verificationFailed).errorDescription());
    EXPECT_NE(AccountError(AccountError::accountRequired).errorDescription(),
              AccountError(AccountError::keychainAccess).errorDescription());
}

TEST(StringTableDeathTest, AMissingBundleStopsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto withoutResources = []
    {
        auto services = platform::systemServices();
        services.resourceFolders = {"/nonexistent"};
        platform::replaceServices(services);
        (void)AccountError(AccountError::accountRequired).errorDescription();
    };
    EXPECT_DEATH(withoutResources(), "Unable to find bundle Tessera");
}
