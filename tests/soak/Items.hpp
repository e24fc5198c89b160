#pragma once

#include "Platform/Security/Keychain/ItemStore.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace soak
{

/// What a run writes and reads, over one keychain: the items of one service, with values of
/// `Value.hpp`. As a program does it: through `StoreKeychain`, a write as a delete and an add in
/// one staged scope.
class Items
{
public:
    explicit Items(std::shared_ptr<platform::ItemStore> store);

    platform::KeychainStatus put(std::string_view key, std::uint64_t number);
    platform::KeychainStatus add(std::string_view key, std::uint64_t number);
    platform::KeychainStatus remove(std::string_view key);
    platform::KeychainStatus removeAll();

    /// Changes the data where they lie; does nothing where there are none.
    platform::KeychainStatus update(std::string_view key, std::uint64_t number);

    /// Deletes `deleted` and adds `refused` in one scope: if that one is there, the scope is
    /// refused with `duplicateItem` and carries out the delete alone.
    platform::KeychainStatus putRefused(std::string_view deleted, std::string_view refused,
                                        std::uint64_t number);

    struct Found
    {
        platform::KeychainStatus status = platform::KeychainStatus::success;
        /// Which write the value is of; nothing when it is damaged, empty or another key's.
        std::optional<std::uint64_t> number;
    };
    Found get(std::string_view key);

    struct Listing
    {
        platform::KeychainStatus status = platform::KeychainStatus::success;
        std::map<std::string, std::uint64_t, std::less<>> numbers;
        /// What is wrong with an item: a damaged value, a key that stands twice.
        std::string fault;
    };
    /// All items with their values; none is a success here.
    Listing all();

    const std::shared_ptr<platform::Keychain>& keychain() const { return keychain_; }

private:
    std::shared_ptr<platform::ItemStore> store_;
    std::shared_ptr<platform::Keychain> keychain_;
};

/// The keys that most runs use: one with a NUL, one that is not ASCII, one that is long.
const std::string& keyAt(std::size_t index);
inline constexpr std::size_t keyCount = 6;

/// For messages.
std::string shown(std::string_view key);
std::string shown(platform::KeychainStatus status);
std::string shown(const std::optional<std::uint64_t>& number);

}  // namespace soak
