#pragma once

#include "Platform/Security/Authentication/GuardedBytes.hpp"
#include "Platform/Security/Authentication/Passcode.hpp"
#include "Platform/Security/Authentication/PasscodeTries.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>

namespace platform
{

using RecordName = std::array<std::byte, 16>;

/// The private half of a passcode's key pair, as the right passcode gives it.
struct PasscodeKey
{
    /// The key pair: what is sealed to it says so.
    RecordName pair{};
    /// The passcode that opened it: another one after each change.
    RecordName wrapping{};
    std::array<std::byte, 32> publicKey{};
    GuardedBytes privateKey{32};
};

/// What is stored of a passcode: the key pair that items are sealed to, its private half sealed
/// under a key that Argon2id makes of the passcode, and the tries. All but the tries is
/// authenticated by that seal, the cost and the public half included.
struct PasscodeRecord
{
    RecordName pair{};
    RecordName wrapping{};
    PasscodeCost cost;
    std::array<std::byte, 16> salt{};
    std::array<std::byte, 32> publicKey{};
    std::array<std::byte, 24> nonce{};
    std::array<std::byte, 32 + 16> sealedKey{};
    PasscodeTries tries;

    /// A new key pair. Throws `std::bad_alloc` where the machine has not the memory for the cost.
    static PasscodeRecord make(const SecretString& passcode, PasscodeCost cost);

    /// The same key pair under another passcode, with no tries. Throws as `make` does.
    static PasscodeRecord rewrap(const PasscodeKey& key, const SecretString& passcode,
                                 PasscodeCost cost);

    /// Null if the passcode is wrong, or the record was tampered with. Throws as `make` does.
    std::shared_ptr<const PasscodeKey> open(const SecretString& passcode) const;

    /// Nothing where the bytes are no such record, or demand more than is ever written.
    static std::optional<PasscodeRecord> read(std::span<const std::byte> stored);
    SecretBytes written() const;

private:
    void authenticated(class FieldWriter& out) const;
};

}  // namespace platform
