#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"

/// The most that one item may take in the embedded store. What a file claims beyond that is not
/// read.
namespace platform::storeLimits
{

/// A value, and what the user's consent adds to it.
inline constexpr int value = static_cast<int>(keychainLimits::value) + 64 * 1024;
inline constexpr int row = value + 64 * 1024;

}  // namespace platform::storeLimits
