#pragma once

#include "Platform/Security/Authentication/GuardedBytes.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <span>

namespace platform
{

/// The key of a store and the keys for single uses that are derived from it, in guarded memory that
/// cannot be written once they stand. Immutable: any thread may use it.
class MasterKey
{
public:
    static constexpr std::size_t size = 32;
    using Name = std::array<std::byte, 16>;

    static std::shared_ptr<const MasterKey> random();
    explicit MasterKey(std::span<const std::byte, size> bytes);

    std::span<const std::byte, size> bytes() const noexcept;

    /// Tells keys apart without telling anything about them; stands in the database.
    const Name& name() const noexcept { return name_; }

    const unsigned char* sealing() const noexcept { return derived(1); }
    const unsigned char* digest() const noexcept { return derived(2); }
    const unsigned char* header() const noexcept { return derived(3); }
    const unsigned char* row() const noexcept { return derived(4); }

private:
    const unsigned char* derived(std::size_t use) const noexcept
    {
        return memory_.data() + use * size;
    }

    GuardedBytes memory_;
    Name name_{};
};

}  // namespace platform
