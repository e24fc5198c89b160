#pragma once

#include "Platform/Security/Embedded/MasterKey.hpp"
#include "Platform/Security/Embedded/Sealing.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <cstdint>
#include <span>

namespace platform
{

/// Whether all changes are in the database file itself.
enum class LogState : std::uint32_t
{
    /// They are: the log may be missing.
    merged = 0,
    /// The log may hold changes that stand nowhere else.
    needed = 1,
    /// It was needed and is gone: items that were there may be missing.
    lost = 2,
};

/// The one record that says what a store file is and what it must hold, authenticated as a whole
/// with the store's key. Later formats keep its beginning, and may put further fields at its end,
/// which this version carries along. A value.
struct StoreHeader
{
    /// The format that this program writes, and the oldest whose programs may open such a file.
    static constexpr std::uint32_t currentFormat = 1;

    std::uint32_t format = currentFormat;
    std::uint32_t oldestReader = currentFormat;
    MasterKey::Name keyName{};
    LogState log = LogState::merged;
    std::uint64_t items = 0;
    ItemDigest digest;
    SecretBytes further;

    SecretBytes encoded(const MasterKey& key) const;

    /// Throws `StoreFault`: `notAvailable` where this program may not open the file or the key is
    /// not the file's, `damaged` where the record is not as it was written.
    static StoreHeader decoded(std::span<const std::byte> record, const MasterKey& key);
};

}  // namespace platform
