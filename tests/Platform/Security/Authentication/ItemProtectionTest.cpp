#include "Platform/Security/Authentication/ItemProtection.hpp"

#include "tests/Platform/Security/Authentication/ProtectionHost.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace platform;
using enum KeychainStatus;
using Flag = AccessControlFlag;
using Outcome = Authenticator::Outcome;

namespace
{

constexpr std::array flags{Flag::userPresence, Flag::anyFingerprint, Flag::currentFingerprintSet,
                           Flag::devicePasscode};

/// A host whose user answers everything rightly.
struct ReadyHost : ProtectionHost
{
    ReadyHost()
    {
        EXPECT_EQ(passcode.set(SecretString("right")), success);
        user->answer(Outcome::confirmed, "right");
    }
};

}  // namespace

TEST(ItemProtection, RefusesAtTheAddWhatThisMachineCannotProtect)
{
    struct Row
    {
        const char* name;
        Flag flag;
        KeychainStatus expected;
        std::function<void(ProtectionHost&)> prepare;
    };
    const auto nothing = [](ProtectionHost&) {};
    const auto noUser = [](ProtectionHost& host) { host.user = nullptr; };
    const auto noReader = [](ProtectionHost& host)
    { host.user->offer({Flag::userPresence, Flag::devicePasscode}); };
    const auto noFingers = [](ProtectionHost& host) { host.user->enrol(std::nullopt); };
    const auto passcode = [](ProtectionHost& host) { host.passcode.set(SecretString("right")); };
    const auto onlyPasscode = [](ProtectionHost& host)
    {
        host.passcode.set(SecretString("right"));
        host.user = nullptr;
    };
    const std::vector<Row> rows{
        {"presence", Flag::userPresence, success, nothing},
        {"presence, nobody to ask", Flag::userPresence, notAvailable, noUser},
        {"finger", Flag::anyFingerprint, success, nothing},
        {"finger, no reader", Flag::anyFingerprint, notAvailable, noReader},
        {"these fingers", Flag::currentFingerprintSet, success, nothing},
        {"these fingers, no reader", Flag::currentFingerprintSet, notAvailable, noReader},
        {"these fingers, none enrolled", Flag::currentFingerprintSet, notAvailable, noFingers},
        {"passcode, none set", Flag::devicePasscode, notAvailable, nothing},
        {"passcode", Flag::devicePasscode, success, passcode},
        {"passcode needs nobody to ask", Flag::devicePasscode, success, onlyPasscode},
        {"nothing demanded", Flag::none, success, noUser},
        {"no such flag", static_cast<Flag>(0x4), parameter, nothing},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.name);
        ProtectionHost host;
        row.prepare(host);
        auto item = ProtectionHost::item(row.flag);
        const auto before = item;

        EXPECT_EQ(host.protection.protect(item, host.services()), row.expected);

        EXPECT_EQ(item == before, row.expected != success || row.flag == Flag::none);
        EXPECT_EQ(host.takeDiagnostics().size(), row.expected == notAvailable ? 1U : 0U);
        EXPECT_EQ(host.user ? host.user->asked() : 0, 0U);
    }
}

TEST(ItemProtection, ReleasesTheValueWhenTheUserDidWhatTheItemDemands)
{
    const std::string large(keychainLimits::value, 'v');
    for (const auto flag : flags)
        for (const auto& value : {std::string("the value"), std::string(1, '\0'), large})
        {
            ReadyHost host;
            auto item = host.stored(flag, value);
            LocalAuthenticationContext context;
            context.setLocalizedReason("to show the note");
            EXPECT_LE(item.data.size(), value.size() + 160);
            // A single byte may be found in anything.
            const bool isOpen = text(item.data).find(value) != std::string::npos;
            EXPECT_EQ(isOpen && value.size() > 1, flag != Flag::devicePasscode && value.size() > 1);

            ASSERT_EQ(host.protection.release(item, context, host.services()), success);

            EXPECT_EQ(text(item.data), value);
            const auto asked = host.user->requests();
            ASSERT_EQ(asked.size(), 1U);
            EXPECT_EQ(asked[0].demanded, flag);
            EXPECT_EQ(asked[0].reason, "to show the note");
            EXPECT_TRUE(host.user->ranOnMarkedThread());
            EXPECT_FALSE(isAuthenticating());
            EXPECT_TRUE(host.takeDiagnostics().empty());
        }
}

TEST(ItemProtection, AnswersWithWhatTheUserDid)
{
    struct Row
    {
        Outcome outcome;
        std::string passcode;
        KeychainStatus presence;
        KeychainStatus sealed;
    };
    const std::vector<Row> rows{
        {Outcome::confirmed, "right", success, success},
        {Outcome::confirmed, "wrong", success, authenticationFailed},
        {Outcome::confirmed, "", success, authenticationFailed},
        {Outcome::cancelled, "right", userCancelled, userCancelled},
        {Outcome::failed, "right", authenticationFailed, authenticationFailed},
        {Outcome::unavailable, "right", notAvailable, notAvailable},
        {static_cast<Outcome>(77), "right", notAvailable, notAvailable},
    };
    for (const auto& row : rows)
        for (const auto flag : flags)
        {
            SCOPED_TRACE(static_cast<int>(row.outcome));
            ReadyHost host;
            const auto item = host.stored(flag);
            host.user->answer(row.outcome, row.passcode);
            const auto expected = flag == Flag::devicePasscode ? row.sealed : row.presence;

            EXPECT_EQ(host.readAlone(item), expected) << static_cast<int>(flag);

            EXPECT_EQ(host.user->asked(), 1U);
            const bool isFault = expected != success && expected != userCancelled;
            EXPECT_EQ(host.takeDiagnostics().size(), isFault ? 1U : 0U);
        }
    ReadyHost host;
    const auto item = host.stored(Flag::userPresence);
    host.user->meanwhile([] { throw std::runtime_error("broken window"); });
    EXPECT_EQ(host.readAlone(item), authenticationFailed);
}

TEST(ItemProtection, TheStoredItemDecidesAndASealedValueBelongsToItsItem)
{
    const auto original = ProtectionHost::item(Flag::none);
    struct Row
    {
        const char* name;
        std::function<void(KeychainItem&)> move;
        bool everyFlag;
    };
    const std::vector<Row> rows{
        {"asks for less",
         [](auto& item)
         {
             item.accessControl = item.accessControl == Flag::userPresence ? Flag::anyFingerprint
                                                                           : Flag::userPresence;
         },
         true},
        {"never protected", [&](auto& item) { item.data = original.data; }, true},
        {"empty", [](auto& item) { item.data.clear(); }, true},
        {"another service", [](auto& item) { item.identity.service += "x"; }, false},
        {"another key", [](auto& item) { item.identity.account = "other"; }, false},
        {"service and key regrouped",
         [](auto& item)
         {
             item.identity.service += "k";
             item.identity.account = "ey";
         },
         false},
        {"another group", [](auto& item) { item.identity.accessGroup = "group.all"; }, false},
        {"another travel", [](auto& item) { item.identity.synchronizable = true; }, false},
        {"another accessibility", [](auto& item)
         { item.accessible = KeychainAccessible::kSecAttrAccessibleWhenUnlocked; }, false},
    };
    for (const auto& row : rows)
        for (const auto flag : flags)
        {
            if (!row.everyFlag && flag != Flag::devicePasscode)
                continue;
            SCOPED_TRACE(row.name);
            ReadyHost host;
            auto item = host.stored(flag);
            row.move(item);
            const auto before = item;
            LocalAuthenticationContext context;

            EXPECT_EQ(host.protection.release(item, context, host.services()), damaged);

            EXPECT_EQ(item, before);
            EXPECT_EQ(host.takeDiagnostics().size(), 1U);
        }
}

TEST(ItemProtection, ASealedValueWithOneByteChangedIsNeverReleased)
{
    ReadyHost host;
    const auto whole = host.stored(Flag::devicePasscode);
    LocalAuthenticationContext context;
    ASSERT_EQ(host.read(whole, context), success);

    for (std::size_t i = 0; i < whole.data.size(); ++i)
        for (const auto bit : {std::byte{1}, std::byte{0x80}})
        {
            auto item = whole;
            item.data.mutableView()[i] ^= bit;
            const auto status = host.read(item, context);
            EXPECT_TRUE(status == damaged || status == notAvailable) << "byte " << i;
        }
    for (std::size_t size = 0; size < whole.data.size(); ++size)
    {
        auto item = whole;
        item.data.resize(size);
        EXPECT_EQ(host.read(item, context), damaged) << "cut to " << size;
    }
}

TEST(ItemProtection, AContextAsksOnceForEachDemandUntilThingsChange)
{
    ReadyHost host;
    std::map<Flag, KeychainItem> items;
    for (const auto flag : flags)
        items[flag] = host.stored(flag);
    auto second = ProtectionHost::item(Flag::devicePasscode, "second");
    second.identity.account = "second";
    ASSERT_EQ(host.protection.protect(second, host.services()), success);
    LocalAuthenticationContext context;
    const auto asksFor = [&](const KeychainItem& item)
    {
        const auto before = host.user->asked();
        EXPECT_EQ(host.read(item, context), success);
        return host.user->asked() > before;
    };

    for (const auto flag : flags)
        EXPECT_TRUE(asksFor(items[flag])) << "an agreement to one demand is none to another";
    for (const auto flag : flags)
        EXPECT_FALSE(asksFor(items[flag]));
    EXPECT_FALSE(asksFor(second));

    host.passcode.change(SecretString("right"), SecretString("newer"));
    host.user->answer(Outcome::confirmed, "newer");
    EXPECT_TRUE(asksFor(items[Flag::devicePasscode]));
    EXPECT_FALSE(asksFor(second));
    EXPECT_FALSE(asksFor(items[Flag::anyFingerprint]));

    host.user->enrol("three thumbs");
    EXPECT_TRUE(asksFor(items[Flag::anyFingerprint]));
    EXPECT_FALSE(asksFor(items[Flag::anyFingerprint]));
    EXPECT_FALSE(asksFor(items[Flag::userPresence]));

    LocalAuthenticationContext other;
    EXPECT_EQ(host.read(items[Flag::userPresence], other), success);
    EXPECT_EQ(host.user->asked(), flags.size() + 3);
}

TEST(ItemProtection, AChangedSetOfFingerprintsMakesItsItemsUnreadable)
{
    ReadyHost host;
    const auto item = host.stored(Flag::currentFingerprintSet);
    LocalAuthenticationContext context;
    ASSERT_EQ(host.read(item, context), success);

    for (const auto& set : {std::optional<std::string>("another"), std::optional<std::string>()})
    {
        host.user->enrol(set);
        EXPECT_EQ(host.read(item, context), notAvailable);
        EXPECT_EQ(host.readAlone(item), notAvailable);
        EXPECT_EQ(host.user->asked(), 1U);
    }
    host.user->enrol("two thumbs");
    host.user->meanwhile([&] { host.user->enrol("enrolled while the window stood open"); });
    EXPECT_EQ(host.readAlone(item), notAvailable);
}

TEST(ItemProtection, WhatWasSealedToARemovedPasscodeIsUnreadableForEver)
{
    ReadyHost host;
    const auto item = host.stored(Flag::devicePasscode);
    LocalAuthenticationContext context;
    ASSERT_EQ(host.read(item, context), success);

    ASSERT_EQ(host.passcode.remove(SecretString("right")), success);
    EXPECT_EQ(host.read(item, context), notAvailable);
    ASSERT_EQ(host.passcode.set(SecretString("right")), success);
    EXPECT_EQ(host.read(item, context), notAvailable);
    EXPECT_EQ(host.readAlone(item), notAvailable);

    EXPECT_EQ(host.user->asked(), 1U);
    for (const auto& diagnostic : host.takeDiagnostics())
        EXPECT_EQ(diagnostic.cause, "The item was sealed to a passcode that has been removed.");
}

TEST(ItemProtection, WrongPasscodesOfReadsAreThrottledWithoutAsking)
{
    ReadyHost host;
    const auto item = host.stored(Flag::devicePasscode);
    host.user->answer(Outcome::confirmed, "");
    EXPECT_EQ(host.readAlone(item), authenticationFailed) << "an empty one costs no try";
    host.user->answer(Outcome::confirmed, "wrong");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(host.readAlone(item), authenticationFailed);
    host.user->answer(Outcome::confirmed, "right");
    host.takeDiagnostics();

    EXPECT_EQ(host.readAlone(item), authenticationFailed);

    EXPECT_EQ(host.user->asked(), 6U);
    const auto told = host.takeDiagnostics();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].nextStep, "Try again in 30 seconds.");
    host.clock->advance(30 * nanosecondsPerSecond);
    EXPECT_EQ(host.readAlone(item), success);
    EXPECT_EQ(host.readAlone(item), success) << "the right one clears the count";
    EXPECT_EQ(host.user->asked(), 8U);
}

TEST(ItemProtection, ABarredContextReleasesOnlyWhatWasAgreedTo)
{
    for (const auto flag : flags)
    {
        ReadyHost host;
        const auto item = host.stored(flag);
        LocalAuthenticationContext context;
        context.setInteractionNotAllowed(true);

        EXPECT_EQ(host.read(item, context), interactionNotAllowed);
        EXPECT_EQ(host.user->asked(), 0U);
        EXPECT_EQ(host.read(ProtectionHost::item(Flag::none), context), success);
        context.setInteractionNotAllowed(false);
        EXPECT_EQ(host.read(item, context), success);
        context.setInteractionNotAllowed(true);
        EXPECT_EQ(host.read(item, context), success);
        EXPECT_EQ(host.user->asked(), 1U);
    }
}

TEST(ItemProtection, FailuresOfTheStoreReachTheReader)
{
    ReadyHost host;
    const auto item = host.stored(Flag::devicePasscode);
    LocalAuthenticationContext context;
    ASSERT_EQ(host.read(item, context), success);
    host.store->fail(inputOutput);

    auto added = ProtectionHost::item(Flag::devicePasscode);
    EXPECT_EQ(host.protection.protect(added, host.services()), inputOutput);
    EXPECT_EQ(host.read(item, context), inputOutput);
    EXPECT_EQ(host.readAlone(item), inputOutput);

    host.store->fail(std::nullopt);
    EXPECT_EQ(host.read(item, context), success);
}
