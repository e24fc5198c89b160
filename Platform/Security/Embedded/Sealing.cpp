#include "Platform/Security/Embedded/Sealing.hpp"

#include "Platform/Security/Authentication/Fields.hpp"

#include <limits>
#include <string>
#include <string_view>

#include <sodium.h>

namespace platform
{
namespace
{

constexpr std::size_t nonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t tagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
static_assert(std::tuple_size_v<Seal> == nonceSize + tagSize);
static_assert(MasterKey::size >= crypto_shorthash_KEYBYTES);

void appendNumber(std::string& to, std::uint32_t number)
{
    const char bytes[] = {static_cast<char>(number), static_cast<char>(number >> 8),
                          static_cast<char>(number >> 16), static_cast<char>(number >> 24)};
    to.append(bytes, sizeof bytes);
}

/// With the length before each text: no two identities have the same encoding.
std::string encoded(const KeychainIdentity& identity)
{
    std::string bytes;
    bytes.reserve(32 + identity.service.size() + identity.account.size() +
                  identity.accessGroup.size());
    for (const std::string_view text :
         {std::string_view(identity.service), std::string_view(identity.account),
          std::string_view(identity.accessGroup)})
    {
        appendNumber(bytes, static_cast<std::uint32_t>(text.size()));
        bytes.append(text);
    }
    bytes.push_back(identity.synchronizable ? '\1' : '\0');
    return bytes;
}

std::string encoded(const KeychainItem& attributes)
{
    auto bytes = encoded(attributes.identity);
    appendNumber(bytes, static_cast<std::uint32_t>(attributes.accessible));
    appendNumber(bytes, static_cast<std::uint32_t>(attributes.accessControl));
    return bytes;
}

const unsigned char* readable(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

std::int64_t Sealing::row(const KeychainIdentity& identity) const
{
    const auto text = encoded(identity);
    std::array<unsigned char, crypto_shorthash_BYTES> hash;
    crypto_shorthash(hash.data(), readable(text), text.size(), key_->row());
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < hash.size(); ++i)
        number |= std::uint64_t{hash[i]} << (8 * i);
    return static_cast<std::int64_t>(number &
                                     std::uint64_t{std::numeric_limits<std::int64_t>::max()});
}

std::vector<std::byte> Sealing::sealed(const KeychainItem& item, Seal& seal) const
{
    const auto attributes = encoded(item);
    const auto plain = item.data.view();
    std::vector<std::byte> sealed(plain.size());
    unsigned char* nonce = writable(seal);
    randombytes_buf(nonce, nonceSize);
    crypto_aead_xchacha20poly1305_ietf_encrypt_detached(
        writable(sealed), nonce + nonceSize, nullptr, platform::readable(plain), plain.size(),
        readable(attributes), attributes.size(), nullptr, nonce, key_->sealing());
    return sealed;
}

std::optional<SecretBytes> Sealing::opened(const KeychainItem& item, const Seal& seal,
                                           std::span<const std::byte> sealed) const
{
    const auto attributes = encoded(item);
    const unsigned char* nonce = platform::readable(seal);
    SecretBytes plain;
    plain.resize(sealed.size());
    if (crypto_aead_xchacha20poly1305_ietf_decrypt_detached(
            writable(plain.mutableView()), nullptr, platform::readable(sealed), sealed.size(),
            nonce + nonceSize, readable(attributes), attributes.size(), nonce,
            key_->sealing()) != 0)
        return std::nullopt;
    return plain;
}

ItemMark Sealing::mark(const KeychainItem& item, const Seal& seal) const
{
    auto bytes = encoded(item);
    bytes.append(reinterpret_cast<const char*>(seal.data()), seal.size());
    ItemMark mark;
    crypto_generichash(writable(mark), mark.size(), readable(bytes), bytes.size(), key_->digest(),
                       MasterKey::size);
    return mark;
}

void ItemDigest::add(const ItemMark& mark) noexcept
{
    sodium_add(writable(sum_), platform::readable(mark), sum_.size());
}

void ItemDigest::subtract(const ItemMark& mark) noexcept
{
    sodium_sub(writable(sum_), platform::readable(mark), sum_.size());
}

}  // namespace platform
