#include "Platform/Security/Embedded/MasterKey.hpp"

#include "Platform/Security/Authentication/Fields.hpp"

#include <cstdint>
#include <cstring>

#include <sodium.h>

namespace platform
{
namespace
{

constexpr std::size_t derivedKeys = 4;
constexpr std::uint64_t nameUse = 5;
constexpr char context[crypto_kdf_CONTEXTBYTES + 1] = "tsrastor";

static_assert(MasterKey::size == crypto_kdf_KEYBYTES);

}  // namespace

std::shared_ptr<const MasterKey> MasterKey::random()
{
    GuardedBytes bytes(size);
    randombytes_buf(bytes.data(), size);
    return std::make_shared<const MasterKey>(
        std::as_bytes(std::span<const unsigned char, size>(bytes.data(), size)));
}

MasterKey::MasterKey(std::span<const std::byte, size> bytes) : memory_((1 + derivedKeys) * size)
{
    unsigned char* master = memory_.data();
    std::memcpy(master, bytes.data(), size);
    for (std::uint64_t use = 1; use <= derivedKeys; ++use)
        crypto_kdf_derive_from_key(master + use * size, size, use, context, master);
    crypto_kdf_derive_from_key(writable(name_), name_.size(), nameUse, context, master);
    sodium_mprotect_readonly(master);
}

std::span<const std::byte, MasterKey::size> MasterKey::bytes() const noexcept
{
    return std::as_bytes(std::span<const unsigned char, size>(memory_.data(), size));
}

}  // namespace platform
