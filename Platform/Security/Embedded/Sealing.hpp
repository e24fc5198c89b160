#pragma once

#include "Platform/Security/Embedded/MasterKey.hpp"
#include "Platform/Security/Keychain/KeychainItem.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace platform
{

/// Nonce and tag of a sealed value. The tag stands for the value and its attributes, so that they
/// can be vouched for without being read.
using Seal = std::array<std::byte, 24 + 16>;

/// One item's share in the digest of all items.
using ItemMark = std::array<std::byte, 32>;

/// How items are sealed, named and counted under a store's key. Stateless but for the key's
/// pointer.
class Sealing
{
public:
    explicit Sealing(const MasterKey& key) noexcept : key_(&key) {}

    /// The row of an identity: 63 bits that nobody can aim at without the key. That two identities
    /// of one store share a row does not happen in practice (one chance in a million with four
    /// million items), and is then an error and no mix-up.
    std::int64_t row(const KeychainIdentity& identity) const;

    /// Seals the item's data, with a nonce of its own and all attributes as associated data.
    std::vector<std::byte> sealed(const KeychainItem& item, Seal& seal) const;

    /// Nothing where value, seal and attributes do not belong together.
    std::optional<SecretBytes> opened(const KeychainItem& attributes, const Seal& seal,
                                      std::span<const std::byte> sealed) const;

    ItemMark mark(const KeychainItem& attributes, const Seal& seal) const;

private:
    const MasterKey* key_;
};

/// The sum of the marks of all items, modulo 2^256. Marks come from a keyed hash of attributes and
/// seal, so nobody without the key finds another set of items with the same sum; and unlike a hash
/// over the list, the sum follows an added or removed item without reading the others. Unlike
/// exclusive or, it also tells an item that stands twice from one that does not stand at all.
class ItemDigest
{
public:
    ItemDigest() = default;
    explicit ItemDigest(const ItemMark& sum) noexcept : sum_(sum) {}

    void add(const ItemMark& mark) noexcept;
    void subtract(const ItemMark& mark) noexcept;
    const ItemMark& sum() const noexcept { return sum_; }

    bool operator==(const ItemDigest&) const = default;

private:
    ItemMark sum_{};
};

}  // namespace platform
