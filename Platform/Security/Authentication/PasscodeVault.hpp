#pragma once

#include "Platform/Security/Authentication/ItemProtection.hpp"
#include "Platform/Security/Authentication/PasscodeRecord.hpp"

#include <memory>
#include <optional>
#include <string>

namespace platform
{

/// The passcode's record in a store, for the length of one operation: reads and replaces it in
/// steps that other processes cannot come between, and counts the tries. Tells the diagnostic sink
/// why a status is not success, but for `itemNotFound` and `duplicateItem`.
class PasscodeVault
{
public:
    /// Neither is kept for longer than this object lives.
    PasscodeVault(ItemStore& store, const ProtectionServices& services);

    struct Found
    {
        KeychainStatus status = KeychainStatus::success;
        PasscodeRecord record;
        /// Only where a passcode was tried and was right.
        std::shared_ptr<const PasscodeKey> key;
    };

    /// `itemNotFound` where no passcode is set.
    Found read() const;

    /// `authenticationFailed` while a wait lasts.
    KeychainStatus mayTry() const;

    /// Counts the try, makes it, and takes the count back if the passcode was right.
    Found open(const SecretString& passcode) const;

    KeychainStatus add(const PasscodeRecord& record) const;

    /// Puts another record, or none, in the place of the one with this passcode. When another
    /// program has changed it meanwhile, the answer is `authenticationFailed`, or `itemNotFound`.
    KeychainStatus replace(const PasscodeRecord& old, const PasscodeRecord* replacement) const;

    /// For work that may run out of memory: `notAvailable`, and explained, when it does.
    KeychainStatus tooLittleMemory() const;

private:
    Found beginTry(bool counting) const;
    void forgive(const PasscodeRecord& tried, std::uint32_t tries) const;
    KeychainStatus tell(KeychainStatus status, std::string cause, std::string nextStep) const;
    KeychainStatus tellDamaged() const;

    ItemStore& store_;
    const ProtectionServices& services_;
};

/// Hands a diagnostic to the sink, if there is one.
void report(const DiagnosticSink& sink, const char* area, std::string cause, std::string nextStep);

}  // namespace platform
