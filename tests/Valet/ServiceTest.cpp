#include "Valet/KeychainError.hpp"
#include "Valet/Service.hpp"
#include "tests/support/ScriptedKeychain.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace valet;

namespace
{

Identifier id(std::string_view text)
{
    return Identifier::make(text).value();
}

SharedGroupIdentifier group()
{
    return SharedGroupIdentifier::make("group", "org.example.writers").value();
}

const auto local = Configuration::valet(Accessibility::afterFirstUnlock);
const auto cloud = Configuration::iCloud(CloudAccessibility::whenUnlocked);

Configuration enclave(SecureEnclaveAccessControl control)
{
    return Configuration::secureEnclave(control);
}

const auto finger = SecureEnclaveAccessControl::currentFingerprintSet;
const auto singlePrompt = Configuration::singlePromptSecureEnclave(finger);

}  // namespace

TEST(Service, NamesAndQueriesAreTheOnesByWhichItemsWereStored)
{
    const std::string id_ = "_initWithIdentifier:accessibility:_";
    const std::string group_ =
        "_initWithSharedAccessGroupIdentifier:accessibility:_org.example.writers_";
    const std::string passcode = "AccessibleWhenPasscodeSetThisDeviceOnly";
    const std::string shared = "kSecAttrAccessGroup=group.org.example.writers, ";
    const std::string travels = "kSecAttrSynchronizable=true, ";
    const auto accessible = [](int raw) { return "kSecAttrAccessible=" + std::to_string(raw); };
    const auto guarded = [](int flag) { return "kSecAttrAccessControl=4+" + std::to_string(flag); };
    using enum SecureEnclaveAccessControl;
    const auto valet = &Configuration::valet;
    struct Case
    {
        Service service;
        std::string name;
        std::string queryEnd;
    };
    const Case cases[] = {
        {Service::standard(id("a_b \xC3\xA9"), valet(Accessibility::whenUnlocked)),
         "VAL_VALValet" + id_ + "a_b \xC3\xA9_AccessibleWhenUnlocked", accessible(1)},
        {Service::standard(id("T"), local), "VAL_VALValet" + id_ + "T_AccessibleAfterFirstUnlock",
         accessible(2)},
        {Service::standard(id("T"), valet(Accessibility::whenPasscodeSetThisDeviceOnly)),
         "VAL_VALValet" + id_ + "T_" + passcode, accessible(4)},
        {Service::standard(id("T"), valet(Accessibility::whenUnlockedThisDeviceOnly)),
         "VAL_VALValet" + id_ + "T_AccessibleWhenUnlockedThisDeviceOnly", accessible(5)},
        {Service::standard(id("T"), valet(Accessibility::afterFirstUnlockThisDeviceOnly)),
         "VAL_VALValet" + id_ + "T_AccessibleAfterFirstUnlockThisDeviceOnly", accessible(6)},
        {Service::standard(id("T"), cloud),
         "VAL_VALSynchronizableValet" + id_ + "T_AccessibleWhenUnlocked", travels + accessible(1)},
        {Service::standard(id("T"), Configuration::iCloud(CloudAccessibility::afterFirstUnlock)),
         "VAL_VALSynchronizableValet" + id_ + "T_AccessibleAfterFirstUnlock",
         travels + accessible(2)},
        {Service::sharedGroup(group(), id("T"), local),
         "VAL_VALValet" + group_ + "T_AccessibleAfterFirstUnlock", shared + accessible(2)},
        {Service::sharedGroup(group(), std::nullopt, cloud),
         "VAL_VALSynchronizableValet" + group_ + "AccessibleWhenUnlocked",
         shared + travels + accessible(1)},
        {Service::standard(id("T"), enclave(userPresence)),
         "VAL_VALSecureEnclaveValet" + id_ + "T_" + passcode, guarded(1)},
        {Service::standard(id("T"), enclave(anyFingerprint)),
         "VAL_VALSecureEnclaveValet" + id_ + "T_" + passcode +
             "_AccessControlTouchIDAnyFingerprint",
         guarded(2)},
        {Service::sharedGroup(group(), id("T"), enclave(devicePasscode)),
         "VAL_VALSecureEnclaveValet" + group_ + "T_" + passcode + "_AccessControlDevicePasscode",
         shared + guarded(16)},
        {Service::sharedGroup(group(), id("T"), singlePrompt),
         "VAL_VALSinglePromptSecureEnclaveValet" + group_ + "T_" + passcode +
             "_AccessControlTouchIDCurrentFingerprintSet",
         shared + guarded(8)},
        {Service::standardOverride(id("old"), singlePrompt), "old", guarded(8)},
        {Service::sharedGroupOverride(group(), id("old"), local), "old", shared + accessible(2)},
        {Service::sharedGroupOverride(group(), std::nullopt, cloud), "org.example.writers",
         shared + travels + accessible(1)},
    };
    ScriptedKeychain keychain;
    const std::string begin = "kSecClass=kSecClassGenericPassword, kSecAttrService=";
    const std::string protection = ", kSecUseDataProtectionKeychain=true";
    for (const auto& [service, name, end] : cases)
    {
        EXPECT_EQ(service.name(), name);
        EXPECT_EQ(text(service.baseQuery(keychain)), begin + name + protection + ", " + end);
    }

    keychain.makeNoAccessControl();
    const auto unprotected = Service::standardOverride(id("old"), singlePrompt);
    EXPECT_EQ(text(unprotected.baseQuery(keychain)), begin + "old" + protection);
}

TEST(Identifiers, AreNothingForAnEmptyText)
{
    EXPECT_FALSE(Identifier::make(""));
    EXPECT_FALSE(SharedGroupIdentifier::make("group", ""));
    EXPECT_FALSE(SharedGroupIdentifier::make("", "org.example.writers"));
    EXPECT_EQ(group().description(), "group.org.example.writers");
}

TEST(RawValuesDeathTest, OutsideTheTablesStopTheProcessAndSayWhy)
{
    EXPECT_DEATH((void)fromRawValue<Accessibility>(3), "Accessibility has no case .* raw value 3");
    EXPECT_DEATH((void)fromRawValue<Accessibility>(0), "Accessibility has no case .* raw value 0");
    EXPECT_DEATH((void)fromRawValue<CloudAccessibility>(4), "CloudAccessibility .* raw value 4");
    EXPECT_DEATH((void)fromRawValue<SecureEnclaveAccessControl>(5),
                 "SecureEnclaveAccessControl .* raw value 5");

    const auto cast = Configuration::valet(static_cast<Accessibility>(3));
    EXPECT_DEATH((void)Service::standard(id("T"), cast).name(), "raw value 3");
    const auto castCloud = Configuration::iCloud(static_cast<CloudAccessibility>(5));
    EXPECT_DEATH((void)Service::standard(id("T"), castCloud).name(), "CloudAccess.* raw value 5");
}

TEST(KeychainError, HasItsNumbersTextsAndDomain)
{
    using enum KeychainErrorCase;
    const std::pair<KeychainErrorCase, const char*> texts[] = {
        {couldNotAccessKeychain, "KeychainError.couldNotAccessKeychain"},
        {userCancelled, "KeychainError.userCancelled"},
        {itemNotFound, "KeychainError.itemNotFound"},
        {missingEntitlement, "KeychainError.missingEntitlement"},
        {emptyKey, "KeychainError.emptyKey"},
        {emptyValue, "KeychainError.emptyValue"},
    };
    int raw = 0;
    for (const auto& [errorCase, text] : texts)
    {
        EXPECT_EQ(KeychainError(errorCase).rawValue(), raw++);
        EXPECT_STREQ(KeychainError(errorCase).what(), text);
    }
    EXPECT_STREQ(KeychainError::domain, "Valet.KeychainError");
}
