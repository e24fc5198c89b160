#include "Valet/Accessibility.hpp"

#include "Platform/Basics/Fatal.hpp"

#include <algorithm>
#include <iterator>
#include <string>

namespace valet
{
namespace
{

struct Row
{
    Accessibility accessibility;
    std::string_view description;
    platform::KeychainAccessible keychain;
};

using enum platform::KeychainAccessible;

constexpr Row rows[] = {
    {Accessibility::whenUnlocked, "AccessibleWhenUnlocked", kSecAttrAccessibleWhenUnlocked},
    {Accessibility::afterFirstUnlock, "AccessibleAfterFirstUnlock",
     kSecAttrAccessibleAfterFirstUnlock},
    {Accessibility::whenPasscodeSetThisDeviceOnly, "AccessibleWhenPasscodeSetThisDeviceOnly",
     kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly},
    {Accessibility::whenUnlockedThisDeviceOnly, "AccessibleWhenUnlockedThisDeviceOnly",
     kSecAttrAccessibleWhenUnlockedThisDeviceOnly},
    {Accessibility::afterFirstUnlockThisDeviceOnly, "AccessibleAfterFirstUnlockThisDeviceOnly",
     kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly},
};

const Row& row(int raw)
{
    const auto* found =
        std::ranges::find(rows, raw, [](const Row& each) { return rawValue(each.accessibility); });
    if (found == std::end(rows))
        platform::fatal("Accessibility has no case with the raw value " + std::to_string(raw) +
                        "; there are 1, 2, 4, 5 and 6");
    return *found;
}

}  // namespace

template <>
Accessibility fromRawValue<Accessibility>(int rawValue)
{
    return row(rawValue).accessibility;
}

std::string_view description(Accessibility accessibility)
{
    return row(rawValue(accessibility)).description;
}

platform::KeychainAccessible keychainAccessibility(Accessibility accessibility)
{
    return row(rawValue(accessibility)).keychain;
}

}  // namespace valet
