#pragma once

#include "Valet/Accessibility.hpp"

namespace valet
{

/// When the items of an iCloud store may be read: the cases of `Accessibility` that fit items which
/// may travel between the user's machines, under the same names and numbers.
enum class CloudAccessibility
{
    whenUnlocked = 1,
    afterFirstUnlock = 2,
};

template <>
CloudAccessibility fromRawValue<CloudAccessibility>(int rawValue);

/// The like-named case.
Accessibility accessibility(CloudAccessibility cloudAccessibility);

std::string_view description(CloudAccessibility cloudAccessibility);

platform::KeychainAccessible keychainAccessibility(CloudAccessibility cloudAccessibility);

}  // namespace valet
