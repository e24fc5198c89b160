#include "Platform/Security/Authentication/Authenticator.hpp"
#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Valet/SecureEnclaveValet.hpp"
#include "Valet/SinglePromptSecureEnclaveValet.hpp"
#include "Valet/Valet.hpp"
#include "tests/Valet/StoreTest.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

using namespace valet;
using platform::KeychainStatus;
using testing::ElementsAre;
using enum ScriptedKeychain::Operation;

namespace
{

/// A user who agrees, unless the test says otherwise.
class User final : public platform::Authenticator
{
public:
    Answer authenticate(const Request& request) override
    {
        {
            const std::lock_guard lock(mutex_);
            reasons_.push_back(request.reason);
        }
        if (during)
            during();
        return {outcome, {}};
    }
    bool offers(platform::AccessControlFlag flag) const override
    {
        return flag == platform::AccessControlFlag::userPresence;
    }

    /// Why the user was asked since the last time.
    std::vector<std::string> takeReasons()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(reasons_, {});
    }

    std::atomic<Outcome> outcome = Outcome::confirmed;
    std::function<void()> during;

private:
    std::mutex mutex_;
    std::vector<std::string> reasons_;
};

const auto presence = SecureEnclaveAccessControl::userPresence;

std::string baseOf(std::string_view kind)
{
    return "kSecClass=kSecClassGenericPassword, kSecAttrService=VAL_" + std::string(kind) +
           "_initWithIdentifier:accessibility:_Keys_AccessibleWhenPasscodeSetThisDeviceOnly, "
           "kSecUseDataProtectionKeychain=true, kSecAttrAccessControl=4+1";
}

struct SecureEnclaveStores : testing::Test
{
    std::shared_ptr<User> user = std::make_shared<User>();
    KeychainForTest memory;
    std::shared_ptr<ScriptedKeychain> keychain = memory.keychain;
    std::shared_ptr<SecureEnclaveValet> store =
        SecureEnclaveValet::valet("Keys", presence, keychain);
    std::shared_ptr<SinglePromptSecureEnclaveValet> singlePrompt =
        SinglePromptSecureEnclaveValet::valet("Keys", presence, keychain);

    SecureEnclaveStores() { memory.protection.authenticator = user; }
};

struct ScriptedSecureEnclave : testing::Test
{
    std::shared_ptr<ScriptedKeychain> keychain = std::make_shared<ScriptedKeychain>();
    std::shared_ptr<SecureEnclaveValet> store =
        SecureEnclaveValet::valet("Keys", presence, keychain);
    std::shared_ptr<SinglePromptSecureEnclaveValet> singlePrompt =
        SinglePromptSecureEnclaveValet::valet("Keys", presence, keychain);
};

}  // namespace

TEST_F(ScriptedSecureEnclave, AskTheKeychainForWhatTheySay)
{
    const auto item = baseOf("VALSecureEnclaveValet") + ", kSecAttrAccount=key";
    const auto read = "copy: " + item + ", kSecMatchLimit=one, kSecReturnData=true";
    for (int count = 0; count < 3; ++count)
        keychain->answer(copyMatching, holding("value"));
    store->setString("value", "key");
    (void)store->object("key", "Sign");
    (void)store->string("key", "");
    (void)singlePrompt->string("key", "");
    (void)store->containsObject("key");
    store->removeObject("key");

    const auto single = baseOf("VALSinglePromptSecureEnclaveValet");
    EXPECT_THAT(
        keychain->takeCalls(),
        ElementsAre("staged delete: " + item + ", kSecMatchLimit=all",
                    "staged add: " + item + ", kSecValueData=value",
                    read + ", kSecUseAuthenticationContext=\"Sign\"", read,
                    "copy: " + single +
                        ", kSecAttrAccount=key, kSecMatchLimit=one, kSecReturnData=true, "
                        "kSecUseAuthenticationContext=\"\"",
                    "copy: " + item + ", kSecMatchLimit=one, kSecUseAuthenticationContext=barred",
                    "delete: " + item));
    EXPECT_EQ(text(singlePrompt->baseKeychainQuery()), single);

    (void)singlePrompt->allKeys("List");
    singlePrompt->removeAllObjects();
    EXPECT_THAT(keychain->takeCalls(),
                ElementsAre("copy: " + single +
                                ", kSecMatchLimit=all, kSecReturnAttributes=true, "
                                "kSecUseAuthenticationContext=\"List\"",
                            "delete: " + single + ", kSecMatchLimit=all"));
}

TEST_F(ScriptedSecureEnclave, ExistenceIsAnsweredFromTheStatus)
{
    using Error = KeychainError;
    struct Case
    {
        int status;
        std::optional<bool> contained;
        std::optional<KeychainErrorCase> error;
    };
    const Case cases[] = {
        {0, true, {}},
        {-25308, true, {}},
        {-25300, false, {}},
        {-34018, {}, Error::missingEntitlement},
        {-25293, {}, Error::userCancelled},
        {-128, {}, Error::userCancelled},
        {-25291, {}, Error::couldNotAccessKeychain},
        {-50, {}, Error::couldNotAccessKeychain},
    };
    for (const auto& [number, contained, error] : cases)
        for (ValueStore* each :
             {static_cast<ValueStore*>(store.get()), static_cast<ValueStore*>(singlePrompt.get())})
        {
            SCOPED_TRACE(number);
            std::optional<bool> answer;
            keychain->answer(copyMatching, static_cast<KeychainStatus>(number));
            EXPECT_EQ(failure([&] { answer = each->containsObject("key"); }), error);
            EXPECT_EQ(answer, contained);
        }
    EXPECT_EQ(failure([&] { return store->containsObject(""); }), Error::couldNotAccessKeychain);

    // A read that would need the user is no item that exists.
    keychain->answer(copyMatching, KeychainStatus::interactionNotAllowed);
    EXPECT_EQ(failure([&] { return store->object("key", "Sign"); }), Error::couldNotAccessKeychain);
}

TEST_F(SecureEnclaveStores, AskAtEveryReadAndAtNothingElse)
{
    store->setString("value", "key");
    EXPECT_TRUE(store->containsObject("key"));
    EXPECT_FALSE(store->containsObject("other"));
    EXPECT_TRUE(store->canAccessKeychain());
    EXPECT_EQ(failure([&] { return store->object("other", "Sign"); }), KeychainError::itemNotFound);
    EXPECT_EQ(failure([&] { return store->object("", "Sign"); }), KeychainError::emptyKey);
    EXPECT_THAT(user->takeReasons(), ElementsAre());

    EXPECT_EQ(store->string("key", "Sign the letter").view(), "value");
    EXPECT_EQ(store->object("key", ""), bytes("value"));
    EXPECT_THAT(user->takeReasons(), ElementsAre("Sign the letter", ""));

    user->outcome = platform::Authenticator::Outcome::cancelled;
    EXPECT_EQ(failure([&] { return store->object("key", "Sign"); }), KeychainError::userCancelled);
    EXPECT_TRUE(store->containsObject("key"));

    store->removeObject("key");
    EXPECT_FALSE(store->containsObject("key"));
}

TEST_F(SecureEnclaveStores, SinglePromptAsksOnceUntilItIsToldToAskAgain)
{
    singlePrompt->setString("one", "first");
    singlePrompt->setString("two", "second");
    EXPECT_THAT(singlePrompt->allKeys("List"), ElementsAre("first", "second"));
    EXPECT_THAT(user->takeReasons(), ElementsAre());

    EXPECT_EQ(singlePrompt->string("first", "Unlock").view(), "one");
    EXPECT_EQ(singlePrompt->string("second", "Unlock").view(), "two");
    EXPECT_EQ(singlePrompt->string("first", "").view(), "one");
    EXPECT_THAT(user->takeReasons(), ElementsAre("Unlock"));

    const auto context = singlePrompt->localAuthenticationContext();
    singlePrompt->requirePromptOnNextAccess();
    EXPECT_NE(singlePrompt->localAuthenticationContext(), context);
    EXPECT_EQ(singlePrompt->string("first", "Again").view(), "one");
    EXPECT_EQ(singlePrompt->string("second", "Again").view(), "two");
    EXPECT_THAT(user->takeReasons(), ElementsAre("Again"));

    // The old one is at an end, and so is a store that is given it.
    singlePrompt->setLocalAuthenticationContext(context);
    EXPECT_EQ(failure([&] { return singlePrompt->object("first", "Third"); }),
              KeychainError::userCancelled);
}

TEST_F(ScriptedSecureEnclave, TheCanaryIsUnprotectedAndProtectionIsTriedUnderItsKey)
{
    const std::string end = ", kSecAttrAccount=VAL_KeychainCanaryUsername";
    const auto base = baseOf("VALSecureEnclaveValet");
    const auto open = base.substr(0, base.rfind(", ")) + ", kSecAttrAccessible=4" + end;
    const auto read = "copy: " + open +
                      ", kSecMatchLimit=one, kSecReturnData=true, "
                      "kSecUseAuthenticationContext=barred";
    const auto tried = "add: " + base + end + ", kSecValueData=VAL_ProbeItemSecretValue77";

    // The canary may have been removed by another program meanwhile.
    const auto removed = "delete: " + base + end;
    const std::tuple<KeychainStatus, bool, std::vector<std::string>> cases[] = {
        {KeychainStatus::duplicateItem, true, {read, tried}},
        {KeychainStatus::notAvailable, false, {read, tried}},
        {KeychainStatus::success, true, {read, tried, removed}},
    };
    for (const auto& [status, accessible, calls] : cases)
    {
        keychain->answer(copyMatching, holding("VAL_ProbeItemSecretValue77"));
        keychain->answer(add, status);
        EXPECT_EQ(store->canAccessKeychain(), accessible);
        EXPECT_EQ(keychain->takeCalls(), calls);
    }
}

TEST_F(ScriptedSecureEnclave, WithoutAnAccessControlTheStoreCannotBeUsed)
{
    const auto without = std::make_shared<ScriptedKeychain>();
    without->makeNoAccessControl();
    without->answer(copyMatching, holding("VAL_ProbeItemSecretValue77"));

    EXPECT_FALSE(SecureEnclaveValet::valet("Keys", presence, without)->canAccessKeychain());
}

TEST_F(SecureEnclaveStores, ServeManyThreads)
{
    singlePrompt->setString("value", "key");
    std::vector<std::jthread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back(
            [&, number]
            {
                for (int round = 0; round < 20; ++round)
                {
                    EXPECT_EQ(singlePrompt->string("key", std::to_string(number)).view(), "value");
                    if (number == 0)
                        singlePrompt->requirePromptOnNextAccess();
                    EXPECT_TRUE(store->canAccessKeychain());
                }
            });
}

TEST(SecureEnclaveDeathTest, UseFromInsideTheAuthenticatorIsNamed)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto use = []
    {
        KeychainForTest memory;
        const auto user = std::make_shared<User>();
        memory.protection.authenticator = user;
        const auto store = SecureEnclaveValet::valet("Keys", presence, memory.keychain);
        const auto other = Valet::valet("Other", Accessibility::whenUnlocked, memory.keychain);
        user->during = [&] { (void)other->containsObject("key"); };
        store->setString("value", "key");
        (void)store->object("key", "Sign");
    };
    EXPECT_DEATH(use(), "A store was used from inside Authenticator::authenticate");

    EXPECT_DEATH(SinglePromptSecureEnclaveValet::valet("Keys", presence,
                                                       std::make_shared<ScriptedKeychain>())
                     ->setLocalAuthenticationContext(nullptr),
                 "null authentication context");
}
