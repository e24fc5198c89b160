#pragma once

#include "Platform/Security/Authentication/ItemProtection.hpp"

#include <cstdint>
#include <functional>
#include <memory>

namespace platform
{

/// What one try of a passcode costs, whoever makes it (Argon2id, RFC 9106).
struct PasscodeCost
{
    std::uint64_t operations = 3;
    /// In bytes.
    std::uint64_t memory = std::uint64_t{64} << 20;

    bool operator==(const PasscodeCost&) const = default;
};

/// The user's passcode, one for all programs that share a store: it opens the items that demand
/// `devicePasscode`. It is as strong as it is hard to guess: who has the store and its master key
/// can try passcodes at the price of `PasscodeCost` each.
///
/// A passcode is any text in UTF-8 of 1 to 1024 bytes, compared byte for byte. `change` and
/// `remove` need the old one. Wrong ones are counted for all programs, together with those that are
/// entered to read an item: five are free, then there is a wait of 30 s that doubles with each, up
/// to an hour. While it lasts the answer is `authenticationFailed` at once. The right one clears
/// the count.
///
/// Any thread may call; a call takes as long as a try costs. An authenticator must not.
class Passcode
{
public:
    Passcode(std::shared_ptr<ItemStore> store, std::function<ProtectionServices()> services,
             PasscodeCost cost = {});

    /// Whether there is a passcode; only where `status` is success.
    struct Answer
    {
        KeychainStatus status = KeychainStatus::success;
        bool isSet = false;
    };
    Answer isSet() const;

    /// `duplicateItem` where there is one already, `parameter` for a text that cannot be one.
    KeychainStatus set(const SecretString& passcode);

    /// What was sealed stays readable, with the new passcode. `itemNotFound` where none is set.
    KeychainStatus change(const SecretString& old, const SecretString& replacement);

    /// What was sealed can never be read again, also under a passcode that is set later; reading it
    /// is `notAvailable`. The items are not deleted: whose they are only their programs know.
    /// `itemNotFound` where none is set.
    KeychainStatus remove(const SecretString& old);

private:
    const std::shared_ptr<ItemStore> store_;
    const std::function<ProtectionServices()> services_;
    const PasscodeCost cost_;
};

}  // namespace platform
