#include "Platform/Security/Keychain/Keychain.hpp"

namespace platform
{

std::shared_ptr<const AccessControl> Keychain::makeAccessControl(KeychainAccessible accessible,
                                                                 AccessControlFlag flag)
{
    switch (flag)
    {
        case AccessControlFlag::userPresence:
        case AccessControlFlag::anyFingerprint:
        case AccessControlFlag::currentFingerprintSet:
        case AccessControlFlag::devicePasscode:
            return std::make_shared<const AccessControl>(AccessControl{accessible, flag});
        case AccessControlFlag::none:
            break;
    }
    return nullptr;
}

}  // namespace platform
