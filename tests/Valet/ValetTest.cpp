#include "Valet/Valet.hpp"

#include "tests/Valet/StoreTest.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace valet;
using platform::KeychainStatus;
using testing::ElementsAre;
using enum ScriptedKeychain::Operation;

namespace
{

const std::string base =
    "kSecClass=kSecClassGenericPassword, kSecAttrService="
    "VAL_VALValet_initWithIdentifier:accessibility:_Tokens_AccessibleWhenUnlocked, "
    "kSecUseDataProtectionKeychain=true, kSecAttrAccessible=1";

std::shared_ptr<Valet> storeIn(const std::shared_ptr<platform::Keychain>& keychain)
{
    return Valet::valet("Tokens", Accessibility::whenUnlocked, keychain);
}

struct ValetTest : testing::Test
{
    KeychainForTest memory;
    std::shared_ptr<ScriptedKeychain> keychain = memory.keychain;
    std::shared_ptr<Valet> store = storeIn(keychain);
};

/// A keychain that knows nothing but its script.
struct ScriptedValet : testing::Test
{
    std::shared_ptr<ScriptedKeychain> keychain = std::make_shared<ScriptedKeychain>();
    std::shared_ptr<Valet> store = storeIn(keychain);
};

}  // namespace

TEST_F(ValetTest, GivesBackWhatWasSetUntilItIsRemoved)
{
    const std::string binary("\0\xFF\x80", 3);
    store->setString("one", "text");
    store->setObject(bytes(binary), "bytes");
    store->setString(platform::SecretString(std::string_view("two")), "text");
    store->setString("\xE2\x82\xAC", std::string_view("with\0nul", 8));

    EXPECT_EQ(store->string("text").view(), "two");
    EXPECT_EQ(store->object("bytes"), bytes(binary));
    EXPECT_EQ(store->string(std::string_view("with\0nul", 8)).view(), "\xE2\x82\xAC");
    EXPECT_THAT(store->allKeys(), ElementsAre("bytes", "text", std::string("with\0nul", 8)));

    EXPECT_TRUE(store->containsObject("text"));
    store->removeObject("text");
    store->removeObject("text");
    EXPECT_FALSE(store->containsObject("text"));
    EXPECT_EQ(failure([&] { return store->string("text"); }), KeychainError::itemNotFound);

    store->removeAllObjects();
    store->removeAllObjects();
    EXPECT_THAT(store->allKeys(), ElementsAre());
}

TEST_F(ValetTest, RefusesEmptyKeysAndValuesBeforeTheKeychainHearsOfThem)
{
    using Error = KeychainError;
    EXPECT_EQ(failure([&] { store->setString("", "key"); }), Error::emptyValue);
    EXPECT_EQ(failure([&] { store->setString("value", ""); }), Error::emptyKey);
    EXPECT_EQ(failure([&] { store->setObject(bytes(""), "key"); }), Error::emptyValue);
    EXPECT_EQ(failure([&] { store->setString("\xFF", ""); }), Error::emptyKey);
    EXPECT_EQ(failure([&] { store->setString("\xFF", "key"); }), Error::couldNotAccessKeychain);
    EXPECT_EQ(failure([&] { store->removeObject(""); }), Error::emptyKey);
    EXPECT_EQ(failure([&] { return store->object(""); }), Error::emptyKey);
    EXPECT_EQ(failure([&] { return store->string(""); }), Error::emptyKey);
    EXPECT_EQ(failure([&] { return store->containsObject(""); }), Error::couldNotAccessKeychain);
    EXPECT_THAT(keychain->takeCalls(), ElementsAre());
}

TEST_F(ValetTest, BytesThatAreNoTextAreNotFoundAsText)
{
    store->setObject(bytes("\xC0\x80"), "key");

    EXPECT_EQ(failure([&] { return store->string("key"); }), KeychainError::itemNotFound);
    EXPECT_EQ(store->object("key"), bytes("\xC0\x80"));
}

TEST_F(ScriptedValet, AsksTheKeychainForWhatItSays)
{
    keychain->answer(copyMatching, holding("value"));
    store->setString("value", "key");
    (void)store->object("key");
    (void)store->containsObject("key");
    (void)store->allKeys();
    store->removeObject("key");
    store->removeAllObjects();

    const auto item = base + ", kSecAttrAccount=key";
    EXPECT_THAT(keychain->takeCalls(),
                ElementsAre("staged delete: " + item + ", kSecMatchLimit=all",
                            "staged add: " + item + ", kSecValueData=value",
                            "copy: " + item + ", kSecMatchLimit=one, kSecReturnData=true",
                            "copy: " + item + ", kSecMatchLimit=one",
                            "copy: " + base + ", kSecMatchLimit=all, kSecReturnAttributes=true",
                            "delete: " + item, "delete: " + base + ", kSecMatchLimit=all"));
}

TEST_F(ScriptedValet, EveryStatusIsOneError)
{
    using Error = KeychainError;
    struct Case
    {
        int status;
        std::optional<KeychainErrorCase> read;
    };
    const Case cases[] = {
        {-34018, Error::missingEntitlement},     {-25300, Error::itemNotFound},
        {-25293, Error::userCancelled},          {-128, Error::userCancelled},
        {-25308, Error::couldNotAccessKeychain}, {-25299, Error::couldNotAccessKeychain},
        {-25291, Error::couldNotAccessKeychain}, {-26275, Error::couldNotAccessKeychain},
        {-50, Error::couldNotAccessKeychain},    {-36, Error::couldNotAccessKeychain},
        {-34, Error::couldNotAccessKeychain},    {1, Error::couldNotAccessKeychain},
    };
    for (const auto& [number, read] : cases)
    {
        SCOPED_TRACE(number);
        const auto status = static_cast<KeychainStatus>(number);
        const bool absent = status == KeychainStatus::itemNotFound;
        const auto unlessAbsent = absent ? std::nullopt : read;

        const std::tuple<ScriptedKeychain::Operation, std::function<void()>,
                         std::optional<KeychainErrorCase>>
            operations[] = {
                {copyMatching, [&] { (void)store->object("key"); }, read},
                {copyMatching, [&] { (void)store->string("key"); }, read},
                {copyMatching, [&] { (void)store->containsObject("key"); }, unlessAbsent},
                {copyMatching, [&] { (void)store->allKeys(); }, unlessAbsent},
                {deleteMatching, [&] { store->removeObject("key"); }, unlessAbsent},
                {deleteMatching, [&] { store->removeAllObjects(); }, unlessAbsent},
            };
        for (const auto& [call, operation, error] : operations)
        {
            keychain->answer(call, status);
            EXPECT_EQ(failure(operation), error);
        }

        // The delete may find nothing; then the add decides. After any other refusal there is none.
        (void)keychain->takeCalls();
        keychain->answer(stagedDelete, status);
        EXPECT_EQ(failure([&] { store->setString("value", "key"); }), unlessAbsent);
        EXPECT_EQ(keychain->takeCalls().size(), absent ? 2u : 1u);
        for (const auto deleted : {KeychainStatus::success, KeychainStatus::itemNotFound})
        {
            keychain->answer(stagedDelete, deleted);
            keychain->answer(stagedAdd, status);
            EXPECT_EQ(failure([&] { store->setString("value", "key"); }), read);
        }
    }
}

TEST_F(ScriptedValet, ASuccessWithoutBytesIsNotFound)
{
    keychain->answer(copyMatching, KeychainStatus::success);
    EXPECT_EQ(failure([&] { return store->object("key"); }), KeychainError::itemNotFound);
    keychain->answer(copyMatching, holding(""));
    EXPECT_EQ(failure([&] { return store->object("key"); }), KeychainError::itemNotFound);
}

TEST_F(ScriptedValet, NoForeignExceptionComesThroughExceptThatMemoryRanOut)
{
    const std::vector<std::function<void()>> operations{
        [&] { (void)store->object("key"); },   [&] { (void)store->string("key"); },
        [&] { (void)store->allKeys(); },       [&] { (void)store->containsObject("key"); },
        [&] { store->removeObject("key"); },   [&] { store->removeAllObjects(); },
        [&] { store->setString("v", "key"); },
    };
    keychain->onCall([](const auto&) { throw std::runtime_error("a keychain that throws"); });
    for (const auto& operation : operations)
        EXPECT_EQ(failure(operation), KeychainError::couldNotAccessKeychain);
    EXPECT_FALSE(store->canAccessKeychain());

    keychain->onCall([](const auto&) { throw std::bad_alloc(); });
    for (const auto& operation : operations)
        EXPECT_THROW(operation(), std::bad_alloc);
    EXPECT_FALSE(store->canAccessKeychain());
}

TEST_F(ValetTest, TheCanaryIsWrittenOnceAndInNoListOfKeys)
{
    EXPECT_TRUE(store->canAccessKeychain());
    const auto item = base + ", kSecAttrAccount=VAL_KeychainCanaryUsername";
    const auto read = "copy: " + item +
                      ", kSecMatchLimit=one, kSecReturnData=true, "
                      "kSecUseAuthenticationContext=barred";
    EXPECT_THAT(
        keychain->takeCalls(),
        ElementsAre(read, "add: " + item + ", kSecValueData=VAL_ProbeItemSecretValue77", read));

    EXPECT_TRUE(store->canAccessKeychain());
    EXPECT_THAT(keychain->takeCalls(), ElementsAre(read));
    EXPECT_THAT(store->allKeys(), ElementsAre());
}

TEST_F(ScriptedValet, TheCanaryTellsTheTruthWhateverTheKeychainSays)
{
    const auto good = holding("VAL_ProbeItemSecretValue77");
    const platform::KeychainAnswer absent{KeychainStatus::itemNotFound, {}};
    const platform::KeychainAnswer refused{KeychainStatus::notAvailable, {}};
    struct Case
    {
        platform::KeychainAnswer first;
        KeychainStatus add;
        platform::KeychainAnswer second;
        bool accessible;
        std::size_t calls;
    };
    const Case cases[] = {
        {good, KeychainStatus::success, absent, true, 1},
        {absent, KeychainStatus::success, good, true, 3},
        {refused, KeychainStatus::duplicateItem, good, true, 3},
        {absent, KeychainStatus::success, absent, false, 3},
        {absent, KeychainStatus::missingEntitlement, absent, false, 3},
        {refused, KeychainStatus::notAvailable, refused, false, 3},
        {holding("another text"), KeychainStatus::duplicateItem, holding("another text"), false, 3},
    };
    for (const auto& each : cases)
    {
        const auto fresh = std::make_shared<ScriptedKeychain>();
        fresh->answer(copyMatching, each.first);
        fresh->answer(copyMatching, each.second);
        fresh->answer(add, each.add);
        EXPECT_EQ(storeIn(fresh)->canAccessKeychain(), each.accessible);
        EXPECT_EQ(fresh->takeCalls().size(), each.calls);
    }
}

TEST_F(ValetTest, StoresOfAllThreadsTakeTurnsInTheirKeychains)
{
    KeychainForTest otherMemory;
    std::vector<std::jthread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back(
            [&, number]
            {
                const auto mine = number % 2 ? storeIn(otherMemory.keychain)
                                             : Valet::valet("T" + std::to_string(number / 4),
                                                            Accessibility::whenUnlocked, keychain);
                const auto key = "key" + std::to_string(number);
                for (int round = 0; round < 50; ++round)
                {
                    const auto value = std::to_string(round);
                    mine->setString(value, key);
                    EXPECT_EQ(mine->string(key).view(), value);
                    mine->setString(value, "common");
                    EXPECT_TRUE(mine->containsObject("common"));
                    EXPECT_TRUE(mine->canAccessKeychain());
                }
                EXPECT_TRUE(mine->allKeys().contains(key));
            });
    threads.clear();

    EXPECT_EQ(ScriptedKeychain::greatestOverlap(), 1);
}

TEST_F(ValetTest, AnOperationHoldsItsOwnStoreAlone)
{
    // An empty key is refused under the store's lock, without a call of the keychain.
    const auto other = Valet::valet("Other", Accessibility::whenUnlocked, keychain);
    std::atomic<bool> entered = false;
    std::thread same;
    const auto refused = [](const std::shared_ptr<Valet>& each)
    { EXPECT_EQ(failure([&] { each->removeObject(""); }), KeychainError::emptyKey); };
    keychain->onCall(
        [&](const ScriptedKeychain::Call& call)
        {
            if (call.operation != stagedAdd)
                return;
            same = std::thread(
                [&]
                {
                    refused(store);
                    entered = true;
                });
            std::thread([&] { refused(other); }).join();
            EXPECT_FALSE(entered);
        });
    store->setString("value", "key");
    same.join();

    EXPECT_TRUE(entered);
}

TEST(ValetDeathTest, UseFromInsideAKeychainCallIsNamed)
{
    const auto keychain = std::make_shared<ScriptedKeychain>();
    const auto store = storeIn(keychain);
    const auto other = Valet::valet("Other", Accessibility::whenUnlocked, keychain);
    keychain->onCall([&](const auto&) { (void)other->containsObject("key"); });

    EXPECT_DEATH((void)store->allKeys(), "A store was used from inside a call of its keychain");
}
