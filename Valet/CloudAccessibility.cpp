#include "Valet/CloudAccessibility.hpp"

#include "Platform/Basics/Fatal.hpp"

#include <string>

namespace valet
{

template <>
CloudAccessibility fromRawValue<CloudAccessibility>(int rawValue)
{
    if (rawValue != 1 && rawValue != 2)
        platform::fatal("CloudAccessibility has no case with the raw value " +
                        std::to_string(rawValue) + "; there are 1 and 2");
    return static_cast<CloudAccessibility>(rawValue);
}

Accessibility accessibility(CloudAccessibility cloudAccessibility)
{
    const auto checked = fromRawValue<CloudAccessibility>(rawValue(cloudAccessibility));
    return fromRawValue<Accessibility>(rawValue(checked));
}

std::string_view description(CloudAccessibility cloudAccessibility)
{
    return description(accessibility(cloudAccessibility));
}

platform::KeychainAccessible keychainAccessibility(CloudAccessibility cloudAccessibility)
{
    return keychainAccessibility(accessibility(cloudAccessibility));
}

}  // namespace valet
