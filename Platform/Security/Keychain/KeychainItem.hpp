#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace platform
{

/// When an item may be read. On a desktop that does not lock its storage the keychain keeps it and
/// compares it, and that is all.
enum class KeychainAccessible : std::uint8_t
{
    kSecAttrAccessibleWhenUnlocked = 1,
    kSecAttrAccessibleAfterFirstUnlock = 2,
    kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly = 4,
    kSecAttrAccessibleWhenUnlockedThisDeviceOnly = 5,
    kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly = 6,
};

/// What the user must do before an item is released; one flag at a time.
enum class AccessControlFlag : std::uint32_t
{
    none = 0,
    userPresence = 0x1,
    anyFingerprint = 0x2,
    currentFingerprintSet = 0x8,
    devicePasscode = 0x10,
};

/// What an item demands of the user; made by `Keychain::makeAccessControl`.
struct AccessControl
{
    KeychainAccessible accessible =
        KeychainAccessible::kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly;
    AccessControlFlag flag = AccessControlFlag::none;

    bool operator==(const AccessControl&) const = default;
};

/// What makes an item the one it is. Two items that differ in nothing of this cannot both exist.
struct KeychainIdentity
{
    std::string service = {};
    std::string account = {};
    std::string accessGroup = {};
    bool synchronizable = false;

    auto operator<=>(const KeychainIdentity&) const = default;
};

/// One item, as it is stored and as it is handed out. `data` is empty where it was not asked for.
struct KeychainItem
{
    KeychainIdentity identity = {};
    KeychainAccessible accessible = KeychainAccessible::kSecAttrAccessibleWhenUnlocked;
    AccessControlFlag accessControl = AccessControlFlag::none;
    SecretBytes data = {};

    bool operator==(const KeychainItem&) const = default;
};

/// The longest texts and values that a keychain takes, in bytes.
namespace keychainLimits
{
inline constexpr std::size_t account = 1024;
inline constexpr std::size_t service = 4096;
inline constexpr std::size_t accessGroup = 1024;
inline constexpr std::size_t value = 4 * 1024 * 1024;
}  // namespace keychainLimits

}  // namespace platform
