#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <cstdint>
#include <optional>
#include <string_view>

namespace soak
{

/// A value that says which write it belongs to, and every byte of which follows from that: what was
/// cut, mixed or moved to another key is recognised. The lengths are spread from 16 bytes to 64
/// KiB.
platform::SecretBytes makeValue(std::string_view key, std::uint64_t number);

/// The write that the value belongs to; nothing when it is not whole, or not of this key.
std::optional<std::uint64_t> numberOf(std::string_view key, const platform::SecretBytes& value);

}  // namespace soak
