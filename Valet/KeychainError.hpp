#pragma once

#include "Platform/Basics/LocalizedError.hpp"

#include <cstddef>
#include <string>

namespace valet
{

enum class KeychainErrorCase
{
    /// The keychain cannot be used, or refuses what was asked; the diagnostics of
    /// `platform::Services` tell the cause and the next step.
    couldNotAccessKeychain = 0,
    /// The user refused, or gave a wrong passcode or finger.
    userCancelled = 1,
    itemNotFound = 2,
    /// The program may not use the store's access group.
    missingEntitlement = 3,
    emptyKey = 4,
    emptyValue = 5,
};

/// Why an operation of a store failed; the one error that stores throw, `std::bad_alloc` apart. Two
/// are equal when their cases are. Its texts hold no key and no value.
class KeychainError final : public platform::LocalizedError
{
public:
    using enum KeychainErrorCase;

    static constexpr const char* domain = "Valet.KeychainError";

    explicit KeychainError(KeychainErrorCase ofCase) noexcept : case_(ofCase) {}

    KeychainErrorCase errorCase() const noexcept { return case_; }
    int rawValue() const noexcept { return static_cast<int>(case_); }

    /// Type and case, such as "KeychainError.itemNotFound". There is no other description.
    const char* what() const noexcept override;
    std::string errorDescription() const override { return what(); }

    bool operator==(const KeychainError& other) const noexcept { return case_ == other.case_; }
    friend std::size_t hash_value(const KeychainError& error) noexcept
    {
        return static_cast<std::size_t>(error.case_);
    }

private:
    KeychainErrorCase case_;
};

}  // namespace valet
