#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"
#include "Valet/RawValue.hpp"

#include <string_view>

namespace valet
{

/// What the user must do before an item of a Secure Enclave store is released.
///
/// A case that does not exist, made by a cast, stops the process where it is used.
enum class SecureEnclaveAccessControl
{
    /// Any proof of presence that the host's authenticator accepts.
    userPresence = 1,
    anyFingerprint = 2,
    /// One of the fingerprints that were enrolled when the item was written; items become
    /// unreadable when the set changes.
    currentFingerprintSet = 3,
    /// The passcode of the keychain. Items are sealed under it, so that it cannot be gone round.
    devicePasscode = 4,
};

template <>
SecureEnclaveAccessControl fromRawValue<SecureEnclaveAccessControl>(int rawValue);

/// The end of the service name that stands for it; empty for `userPresence`.
std::string_view serviceNameSuffix(SecureEnclaveAccessControl accessControl);

platform::AccessControlFlag accessControlFlag(SecureEnclaveAccessControl accessControl);

}  // namespace valet
