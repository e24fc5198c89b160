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

TEST(Service, NamesAreTheOnesByWhichItemsWereStored)
{
    struct Case
    {
        Service service;
        const char* name;
    };
    const Case cases[] = {
        {Service::standard(id("Tokens"), local),
         "VAL_VALValet_initWithIdentifier:accessibility:_Tokens_AccessibleAfterFirstUnlock"},
        {Service::standard(id("a_b \xC3\xA9"), Configuration::valet(Accessibility::whenUnlocked)),
         "VAL_VALValet_initWithIdentifier:accessibility:_a_b \xC3\xA9_AccessibleWhenUnlocked"},
        {Service::standard(id("T"),
                           Configuration::valet(Accessibility::whenPasscodeSetThisDeviceOnly)),
         "VAL_VALValet_initWithIdentifier:accessibility:_T_"
         "AccessibleWhenPasscodeSetThisDeviceOnly"},
        {Service::standard(id("T"),
                           Configuration::valet(Accessibility::whenUnlockedThisDeviceOnly)),
         "VAL_VALValet_initWithIdentifier:accessibility:_T_AccessibleWhenUnlockedThisDeviceOnly"},
        {Service::standard(id("T"),
                           Configuration::valet(Accessibility::afterFirstUnlockThisDeviceOnly)),
         "VAL_VALValet_initWithIdentifier:accessibility:_T_"
         "AccessibleAfterFirstUnlockThisDeviceOnly"},
        {Service::standard(id("T"), cloud),
         "VAL_VALSynchronizableValet_initWithIdentifier:accessibility:_T_AccessibleWhenUnlocked"},
        {Service::standard(id("T"), Configuration::iCloud(CloudAccessibility::afterFirstUnlock)),
         "VAL_VALSynchronizableValet_initWithIdentifier:accessibility:_T_"
         "AccessibleAfterFirstUnlock"},
        {Service::sharedGroup(group(), id("T"), local),
         "VAL_VALValet_initWithSharedAccessGroupIdentifier:accessibility:_org.example.writers_T_"
         "AccessibleAfterFirstUnlock"},
        {Service::sharedGroup(group(), std::nullopt, cloud),
         "VAL_VALSynchronizableValet_initWithSharedAccessGroupIdentifier:accessibility:_"
         "org.example.writers_AccessibleWhenUnlocked"},
        {Service::standard(id("T"), enclave(SecureEnclaveAccessControl::userPresence)),
         "VAL_VALSecureEnclaveValet_initWithIdentifier:accessibility:_T_"
         "AccessibleWhenPasscodeSetThisDeviceOnly"},
        {Service::standard(id("T"), enclave(SecureEnclaveAccessControl::anyFingerprint)),
         "VAL_VALSecureEnclaveValet_initWithIdentifier:accessibility:_T_"
         "AccessibleWhenPasscodeSetThisDeviceOnly_AccessControlTouchIDAnyFingerprint"},
        {Service::standard(id("T"), enclave(SecureEnclaveAccessControl::devicePasscode)),
         "VAL_VALSecureEnclaveValet_initWithIdentifier:accessibility:_T_"
         "AccessibleWhenPasscodeSetThisDeviceOnly_AccessControlDevicePasscode"},
        {Service::sharedGroup(group(), id("T"), singlePrompt),
         "VAL_VALSinglePromptSecureEnclaveValet_initWithSharedAccessGroupIdentifier:accessibility:_"
         "org.example.writers_T_AccessibleWhenPasscodeSetThisDeviceOnly"
         "_AccessControlTouchIDCurrentFingerprintSet"},
        {Service::standardOverride(id("org.example.old"), singlePrompt), "org.example.old"},
        {Service::sharedGroupOverride(group(), id("old"), local), "old"},
        {Service::sharedGroupOverride(group(), std::nullopt, local), "org.example.writers"},
    };
    for (const auto& [service, name] : cases)
        EXPECT_EQ(service.name(), name);
}

TEST(Service, BaseQueryHasItsAttributesInTheirOrder)
{
    const std::string named = ", kSecUseDataProtectionKeychain=true";
    const std::string begin = "kSecClass=kSecClassGenericPassword, kSecAttrService=";
    struct Case
    {
        Service service;
        std::string end;
    };
    const Case cases[] = {
        {Service::standard(id("T"), local), named + ", kSecAttrAccessible=2"},
        {Service::standardOverride(id("T"), cloud),
         named + ", kSecAttrSynchronizable=true, kSecAttrAccessible=1"},
        {Service::sharedGroup(group(), id("T"), local),
         named + ", kSecAttrAccessGroup=group.org.example.writers, kSecAttrAccessible=2"},
        {Service::sharedGroupOverride(group(), std::nullopt, cloud),
         named + ", kSecAttrAccessGroup=group.org.example.writers, kSecAttrSynchronizable=true, "
                 "kSecAttrAccessible=1"},
        {Service::standard(id("T"), enclave(SecureEnclaveAccessControl::userPresence)),
         named + ", kSecAttrAccessControl=4+1"},
        {Service::standard(id("T"), enclave(SecureEnclaveAccessControl::anyFingerprint)),
         named + ", kSecAttrAccessControl=4+2"},
        {Service::standard(id("T"), singlePrompt), named + ", kSecAttrAccessControl=4+8"},
        {Service::sharedGroup(group(), id("T"),
                              enclave(SecureEnclaveAccessControl::devicePasscode)),
         named + ", kSecAttrAccessGroup=group.org.example.writers, kSecAttrAccessControl=4+16"},
    };
    ScriptedKeychain keychain;
    for (const auto& [service, end] : cases)
        EXPECT_EQ(text(service.baseQuery(keychain)), begin + service.name() + end);

    keychain.makeNoAccessControl();
    const auto unprotected = Service::standard(id("T"), singlePrompt);
    EXPECT_EQ(text(unprotected.baseQuery(keychain)), begin + unprotected.name() + named);
}

TEST(Identifiers, AreNothingForAnEmptyText)
{
    EXPECT_FALSE(Identifier::make(""));
    EXPECT_FALSE(SharedGroupIdentifier::make("group", ""));
    EXPECT_FALSE(SharedGroupIdentifier::make("", "org.example.writers"));
    EXPECT_EQ(group().description(), "group.org.example.writers");
}

TEST(RawValues, NameTheirCases)
{
    for (const int raw : {1, 2, 4, 5, 6})
    {
        const auto accessibility = fromRawValue<Accessibility>(raw);
        EXPECT_EQ(rawValue(accessibility), raw);
        EXPECT_EQ(static_cast<int>(keychainAccessibility(accessibility)), raw);
    }
    for (const int raw : {1, 2})
    {
        const auto cloudAccessibility = fromRawValue<CloudAccessibility>(raw);
        EXPECT_EQ(accessibility(cloudAccessibility), fromRawValue<Accessibility>(raw));
        EXPECT_EQ(description(cloudAccessibility), description(fromRawValue<Accessibility>(raw)));
    }
    for (const int raw : {1, 2, 3, 4})
        EXPECT_EQ(rawValue(fromRawValue<SecureEnclaveAccessControl>(raw)), raw);
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
    const char* const texts[] = {"KeychainError.couldNotAccessKeychain",
                                 "KeychainError.userCancelled",
                                 "KeychainError.itemNotFound",
                                 "KeychainError.missingEntitlement",
                                 "KeychainError.emptyKey",
                                 "KeychainError.emptyValue"};
    for (int raw = 0; raw < 6; ++raw)
    {
        const KeychainError error(static_cast<KeychainErrorCase>(raw));
        EXPECT_EQ(error.rawValue(), raw);
        EXPECT_STREQ(error.what(), texts[raw]);
        EXPECT_EQ(platform::describe(error), texts[raw]);
    }
    EXPECT_STREQ(KeychainError::domain, "Valet.KeychainError");
    EXPECT_NE(KeychainError(KeychainError::emptyKey), KeychainError(KeychainError::emptyValue));
}
