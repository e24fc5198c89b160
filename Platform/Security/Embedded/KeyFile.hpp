#pragma once

#include "Platform/Security/Embedded/MasterKey.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace platform
{

/// What stands in the key file: the master key, plain or wrapped under a passphrase (Argon2id, then
/// XChaCha20-Poly1305 with the parameters as associated data), and whether the database was made.
/// A checksum tells a damaged file from a wrong passphrase. A value; all throw `StoreFault`.
class KeyFile
{
public:
    static constexpr std::size_t size = 160;

    static KeyFile plain(const MasterKey& key);
    static KeyFile wrapped(const MasterKey& key, const SecretString& passphrase);
    static KeyFile decoded(std::span<const std::byte> bytes);
    SecretBytes encoded() const;

    bool isWrapped() const noexcept { return wrapped_; }

    /// Takes a good part of a second where the key is wrapped.
    std::shared_ptr<const MasterKey> unwrapped(const SecretString& passphrase) const;

    /// Set before the first item is acknowledged. From then on a database that is missing or empty
    /// has been lost, and is no first start.
    bool databaseMade = false;

private:
    static constexpr std::uint32_t version = 1;

    SecretBytes head() const;

    bool wrapped_ = false;
    std::uint64_t operations_ = 0;
    std::uint64_t memory_ = 0;
    std::array<std::byte, 16> salt_{};
    std::array<std::byte, 24> nonce_{};
    /// The key, or its sealed form and the tag; zero behind a plain key.
    SecretBytes body_;
};

}  // namespace platform
