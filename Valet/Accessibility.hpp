#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"
#include "Valet/RawValue.hpp"

#include <string_view>

namespace valet
{

/// When the items of a store may be read. It is part of the store's service name: two stores that
/// differ in it alone do not see each other's items, except those made with an explicit name.
///
/// A case that does not exist, made by a cast, stops the process where it is used.
enum class Accessibility
{
    whenUnlocked = 1,
    afterFirstUnlock = 2,
    whenPasscodeSetThisDeviceOnly = 4,
    whenUnlockedThisDeviceOnly = 5,
    afterFirstUnlockThisDeviceOnly = 6,
};

template <>
Accessibility fromRawValue<Accessibility>(int rawValue);

/// The part of a service name that stands for it, such as "AccessibleWhenUnlocked".
std::string_view description(Accessibility accessibility);

platform::KeychainAccessible keychainAccessibility(Accessibility accessibility);

}  // namespace valet
