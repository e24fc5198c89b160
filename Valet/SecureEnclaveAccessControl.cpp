#include "Valet/SecureEnclaveAccessControl.hpp"

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
    SecureEnclaveAccessControl accessControl;
    std::string_view suffix;
    platform::AccessControlFlag flag;
};

using Flag = platform::AccessControlFlag;

constexpr Row rows[] = {
    {SecureEnclaveAccessControl::userPresence, "", Flag::userPresence},
    {SecureEnclaveAccessControl::anyFingerprint, "_AccessControlTouchIDAnyFingerprint",
     Flag::anyFingerprint},
    {SecureEnclaveAccessControl::currentFingerprintSet,
     "_AccessControlTouchIDCurrentFingerprintSet", Flag::currentFingerprintSet},
    {SecureEnclaveAccessControl::devicePasscode, "_AccessControlDevicePasscode",
     Flag::devicePasscode},
};

const Row& row(int raw)
{
    const auto* found =
        std::ranges::find(rows, raw, [](const Row& each) { return rawValue(each.accessControl); });
    if (found == std::end(rows))
        platform::fatal("SecureEnclaveAccessControl has no case with the raw value " +
                        std::to_string(raw) + "; there are 1, 2, 3 and 4");
    return *found;
}

}  // namespace

template <>
SecureEnclaveAccessControl fromRawValue<SecureEnclaveAccessControl>(int rawValue)
{
    return row(rawValue).accessControl;
}

std::string_view serviceNameSuffix(SecureEnclaveAccessControl accessControl)
{
    return row(rawValue(accessControl)).suffix;
}

platform::AccessControlFlag accessControlFlag(SecureEnclaveAccessControl accessControl)
{
    return row(rawValue(accessControl)).flag;
}

}  // namespace valet
