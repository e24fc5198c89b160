#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Security/Keychain/KeychainStatus.hpp"

#include <exception>
#include <string>

namespace platform
{

/// Why an operation on the embedded store ends without its answer. Thrown where it is found, turned
/// into a diagnostic and a status at the edge of `EmbeddedItemStore`. The texts may name a path,
/// never a key or a value.
class StoreFault final : public std::exception
{
public:
    StoreFault(KeychainStatus status, std::string cause, std::string nextStep)
        : status_(status), diagnostic_{"keychain", std::move(cause), std::move(nextStep)}
    {}

    /// A failed system call: full disks and failed transfers have a status of their own, all else
    /// is `notAvailable`. `what` names what was attempted and on which path.
    static StoreFault ofSystem(std::string what, int error);

    KeychainStatus status() const noexcept { return status_; }
    const Diagnostic& diagnostic() const noexcept { return diagnostic_; }
    const char* what() const noexcept override { return diagnostic_.cause.c_str(); }

private:
    KeychainStatus status_;
    Diagnostic diagnostic_;
};

}  // namespace platform
