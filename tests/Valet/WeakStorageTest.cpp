#include "Platform/Services/Services.hpp"
#include "Valet/SecureEnclaveValet.hpp"
#include "Valet/SinglePromptSecureEnclaveValet.hpp"
#include "Valet/Valet.hpp"
#include "Valet/WeakStorage.hpp"
#include "tests/Valet/StoreTest.hpp"

#include <gmock/gmock.h>

#include <barrier>
#include <functional>
#include <set>
#include <thread>
#include <vector>

using namespace valet;

namespace
{

using Keychain = std::shared_ptr<platform::Keychain>;

Keychain emptyKeychain()
{
    return std::make_shared<ScriptedKeychain>();
}

const auto unlocked = Accessibility::whenUnlocked;
const auto cloudUnlocked = CloudAccessibility::whenUnlocked;
const auto presence = SecureEnclaveAccessControl::userPresence;

Identifier id(std::string_view text)
{
    return Identifier::make(text).value();
}

SharedGroupIdentifier group(std::string_view prefix = "group")
{
    return SharedGroupIdentifier::make(prefix, "writers").value();
}

}  // namespace

TEST(Stores, AreTheSameObjectWhileSomebodyHoldsThem)
{
    const auto keychain = emptyKeychain();
    auto first = Valet::valet(id("T"), unlocked, keychain);

    EXPECT_EQ(Valet::valet("T", unlocked, keychain), first);
    EXPECT_NE(Valet::valet("T", Accessibility::afterFirstUnlock, keychain), first);
    EXPECT_NE(Valet::valet("U", unlocked, keychain), first);
    EXPECT_NE(Valet::iCloudValet("T", cloudUnlocked, keychain), first);

    const auto elsewhere = Valet::valet("T", unlocked, emptyKeychain());
    EXPECT_NE(elsewhere, first);
    EXPECT_EQ(*elsewhere, *first);
    EXPECT_EQ(hash_value(*elsewhere), hash_value(*first));

    const std::weak_ptr<Valet> gone = first;
    first.reset();
    EXPECT_TRUE(gone.expired());
    EXPECT_NE(Valet::valet("T", unlocked, keychain), nullptr);
}

TEST(Stores, OfOneNameAreOneStoreWithinTheirClass)
{
    const auto keychain = emptyKeychain();
    const auto store = Valet::valetWithExplicitlySet("T", unlocked, keychain);

    EXPECT_EQ(Valet::iCloudValetWithExplicitlySet("T", cloudUnlocked, keychain), store);
    EXPECT_EQ(Valet::valetWithExplicitlySet("T", Accessibility::afterFirstUnlock, keychain), store);
    EXPECT_EQ(store->accessibility(), unlocked);

    const auto shared = Valet::sharedGroupValet(group(), id("T"), unlocked, keychain);
    EXPECT_EQ(Valet::sharedGroupValet(group("team"), id("T"), unlocked, keychain), shared);

    const auto enclave = SecureEnclaveValet::valet("T", presence, keychain);
    const auto single = SinglePromptSecureEnclaveValet::valet("T", presence, keychain);
    EXPECT_EQ(SecureEnclaveValet::valet(id("T"), presence, keychain), enclave);
    EXPECT_EQ(SinglePromptSecureEnclaveValet::valet(id("T"), presence, keychain), single);
    EXPECT_NE(hash_value(*enclave), hash_value(*single));
}

TEST(Stores, LeaveNothingBehindWhenTheyGo)
{
    auto& storage = WeakStorage<Valet>::shared();
    const auto before = storage.size();
    const auto keychain = emptyKeychain();
    std::vector<std::shared_ptr<Valet>> held;
    for (int number = 0; number < 100; ++number)
    {
        held.push_back(Valet::valet("T" + std::to_string(number), unlocked, keychain));
        (void)Valet::valet("T" + std::to_string(number), unlocked, emptyKeychain());
    }
    EXPECT_EQ(storage.size(), before + 100);

    held.clear();
    EXPECT_EQ(storage.size(), before);
    EXPECT_EQ(keychain.use_count(), 1);
}

TEST(Stores, AreTheQuickerOneWhereTwoAreMadeAtOnce)
{
    const auto keychain = std::make_shared<ScriptedKeychain>();
    std::shared_ptr<SecureEnclaveValet> quicker;
    keychain->onMakeAccessControl(
        [&] { quicker = SecureEnclaveValet::valet("T", presence, keychain); });

    EXPECT_EQ(SecureEnclaveValet::valet("T", presence, keychain), quicker);
    ASSERT_NE(quicker, nullptr);
    EXPECT_EQ(SecureEnclaveValet::valet("T", presence, keychain), quicker);
}

TEST(Stores, OfManyThreadsAreOneAndEndOnce)
{
    const auto keychain = emptyKeychain();
    const auto before = WeakStorage<Valet>::shared().size();
    constexpr int count = 8;
    constexpr int rounds = 500;
    std::vector<std::shared_ptr<Valet>> made(count);
    int differing = 0;
    std::barrier allMade(count,
                         [&]() noexcept
                         {
                             for (const auto& store : made)
                                 differing += store != made.front();
                         });
    std::barrier allLetGo(count);
    std::vector<std::jthread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back(
            [&, number]
            {
                for (int round = 0; round < rounds; ++round)
                {
                    // Half of the rounds let the last holder go while others ask again.
                    made[number] = Valet::valet("T", unlocked, keychain);
                    allMade.arrive_and_wait();
                    made[number].reset();
                    if (round % 2)
                        allLetGo.arrive_and_wait();
                }
            });
    threads.clear();

    EXPECT_EQ(differing, 0);
    EXPECT_EQ(WeakStorage<Valet>::shared().size(), before);
}

TEST(Stores, FromPlainTextsAreTheTypedOnesAndNoneForAnEmptyText)
{
    const auto keychain = emptyKeychain();
    using Text = std::string_view;
    using Make = std::function<std::shared_ptr<ValueStore>(Text, Text, std::optional<Text>)>;
    struct Case
    {
        std::shared_ptr<ValueStore> typed;
        Make plain;
        bool grouped;
    };
    const auto named = [](auto factory, auto protection, const Keychain& in) -> Make
    {
        return [=](Text, Text, std::optional<Text> name) { return factory(*name, protection, in); };
    };
    const auto grouped = [](auto factory, auto protection, const Keychain& in) -> Make
    {
        return [=](Text prefix, Text shared, std::optional<Text> name)
        { return factory(prefix, shared, name, protection, in); };
    };
    using Enclave = SecureEnclaveValet;
    using Single = SinglePromptSecureEnclaveValet;
#define FACTORY(Store, name) [](const auto&... all) { return Store::name(all...); }
    const Case cases[] = {
        {Valet::valet(id("T"), unlocked, keychain),
         named(FACTORY(Valet, valet), unlocked, keychain), false},
        {Valet::valetWithExplicitlySet(id("T"), unlocked, keychain),
         named(FACTORY(Valet, valetWithExplicitlySet), unlocked, keychain), false},
        {Valet::iCloudValet(id("T"), cloudUnlocked, keychain),
         named(FACTORY(Valet, iCloudValet), cloudUnlocked, keychain), false},
        {Valet::iCloudValetWithExplicitlySet(id("C"), cloudUnlocked, keychain),
         named(FACTORY(Valet, iCloudValetWithExplicitlySet), cloudUnlocked, keychain), false},
        {Enclave::valet(id("T"), presence, keychain),
         named(FACTORY(Enclave, valet), presence, keychain), false},
        {Single::valet(id("T"), presence, keychain),
         named(FACTORY(Single, valet), presence, keychain), false},
        {Valet::sharedGroupValet(group(), id("T"), unlocked, keychain),
         grouped(FACTORY(Valet, sharedGroupValet), unlocked, keychain), true},
        {Valet::sharedGroupValetWithExplicitlySet(group(), id("S"), unlocked, keychain),
         grouped(FACTORY(Valet, sharedGroupValetWithExplicitlySet), unlocked, keychain), true},
        {Valet::iCloudSharedGroupValet(group(), id("T"), cloudUnlocked, keychain),
         grouped(FACTORY(Valet, iCloudSharedGroupValet), cloudUnlocked, keychain), true},
        {Valet::iCloudSharedGroupValetWithExplicitlySet(group(), id("I"), cloudUnlocked, keychain),
         grouped(FACTORY(Valet, iCloudSharedGroupValetWithExplicitlySet), cloudUnlocked, keychain),
         true},
        {Enclave::sharedGroupValet(group(), id("T"), presence, keychain),
         grouped(FACTORY(Enclave, sharedGroupValet), presence, keychain), true},
        {Single::sharedGroupValet(group(), id("T"), presence, keychain),
         grouped(FACTORY(Single, sharedGroupValet), presence, keychain), true},
    };
#undef FACTORY
    std::set<std::string> kinds;
    for (const auto& [typed, plain, inGroup] : cases)
    {
        const auto name = typed->service().name();
        SCOPED_TRACE(name);
        EXPECT_EQ(plain("group", "writers", typed->identifier().backingString()), typed);
        EXPECT_EQ(plain("group", "writers", ""), nullptr);
        kinds.insert(name + std::to_string(inGroup));
        if (!inGroup)
            continue;
        EXPECT_EQ(plain("", "writers", "T"), nullptr);
        EXPECT_EQ(plain("group", "", "T"), nullptr);
        EXPECT_EQ(plain("group", "writers", std::nullopt)->identifier(), id("writers"));
    }
    EXPECT_EQ(kinds.size(), std::size(cases));
}

TEST(Stores, TakeTheKeychainOfTheServicesWhereTheyAreGivenNone)
{
    const auto before = platform::services();
    auto replaced = before;
    const auto system = emptyKeychain();
    replaced.keychain = system;
    platform::replaceServices(replaced);

    const auto store = Valet::valet("T", unlocked);
    EXPECT_EQ(Valet::valet("T", unlocked, system), store);
    platform::replaceServices(before);
}

TEST(StoresDeathTest, WithoutAnyKeychainStopTheProcessAndSayWhatToSet)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto before = platform::services();
    auto replaced = before;
    replaced.keychain = nullptr;
    platform::replaceServices(replaced);

    EXPECT_DEATH((void)Valet::valet("T", unlocked),
                 "set the field keychain with platform::replace");
    EXPECT_DEATH((void)Valet::valet("T", static_cast<Accessibility>(3), emptyKeychain()),
                 "raw value 3");
    platform::replaceServices(before);
}
