#pragma once

#include <cstdint>

namespace platform
{

/// How an operation of a keychain ended. The numbers are part of the interface: hosts and logs know
/// them. A keychain returns these and no others.
enum class KeychainStatus : std::int32_t
{
    success = 0,

    /// The disk is full; nothing has changed.
    diskFull = -34,
    /// A file could not be read, written or synced; nothing has changed.
    inputOutput = -36,
    /// The query is ill-formed: a text that is not UTF-8, a value that is too long, attributes that
    /// exclude each other.
    parameter = -50,
    userCancelled = -128,
    /// The keychain cannot be used, or it cannot tell whether the item exists.
    notAvailable = -25291,
    authenticationFailed = -25293,
    duplicateItem = -25299,
    /// There is no such item, and the keychain is sure of it.
    itemNotFound = -25300,
    /// The item exists, but reading it needs the user.
    interactionNotAllowed = -25308,
    /// The stored data are damaged or were tampered with.
    damaged = -26275,
    /// The program may not use the access group.
    missingEntitlement = -34018,
};

}  // namespace platform
