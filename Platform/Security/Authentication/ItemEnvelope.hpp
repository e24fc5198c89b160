#pragma once

#include "Platform/Security/Authentication/PasscodeRecord.hpp"
#include "Platform/Security/Keychain/KeychainItem.hpp"
#include "Platform/Security/Keychain/KeychainStatus.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform
{

/// What lies in the store as the data of an item with an access control: the version of the form,
/// what the user must do, and the value. An item says by itself what it demands, so that no query
/// can ask for less.
///
/// For the passcode the value is encrypted under a random key, and that key is sealed to the
/// passcode's key pair. The whole item is authenticated with it: a value that is moved to another
/// key, group or accessibility cannot be opened.
struct ItemEnvelope
{
    AccessControlFlag demanded = AccessControlFlag::none;
    /// For `currentFingerprintSet`: the set that was enrolled.
    std::string fingerprints;
    /// For `devicePasscode`: the key pair.
    RecordName pair{};
    /// The value, or what is encrypted of it; a view into the item's data.
    std::span<const std::byte> content;

    /// `damaged` where the data are no envelope, or one that demands something else than the item;
    /// `notAvailable` for a form of a later version.
    static KeychainStatus read(const KeychainItem& item, ItemEnvelope& envelope);

    /// An envelope that is opened by whoever decides that the user agreed.
    static SecretBytes closed(const KeychainItem& item, std::string_view fingerprints);

    static SecretBytes sealed(const KeychainItem& item, const PasscodeRecord& record);

    /// Nothing where `key` does not open it.
    std::optional<SecretBytes> unsealed(const KeychainItem& item, const PasscodeKey& key) const;

    /// A short name for a set of fingerprints, whose own name may be of any length.
    static std::string fingerprintsNamed(std::string_view set);
};

}  // namespace platform
