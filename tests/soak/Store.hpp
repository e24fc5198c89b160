#pragma once

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Keychain/Keychain.hpp"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace soak
{

/// Which keychain, and where it lies.
struct Place
{
    /// Of the embedded keychain: holds the folder of the data and the folder of the key. Of the
    /// Secret Service: where writers exclude each other.
    std::filesystem::path folder = {};
    /// Where the Secret Service is; empty for the embedded keychain.
    std::string busAddress = {};
    /// Which passphrase wraps the master key; nothing where a file keeps it.
    std::optional<std::uint64_t> passphrase = {};

    bool isSecretService() const { return !busAddress.empty(); }

    /// The command line on which this program is `part` and is told the place.
    std::vector<std::string> command(const std::string& part,
                                     std::vector<std::string> options = {}) const;
};

enum class Below
{
    machine,
    /// The layers of `FileWatcher.hpp`.
    watched,
};

/// What is stored: for each key, which write.
using State = std::map<std::string, std::uint64_t, std::less<>>;

/// One of the keychains under test, opened anew: what a process that has just started sees.
///
/// Holds the items of one service. A value says which write it belongs to, and every byte of it
/// follows from that and from the key: what was cut, mixed or moved is recognised. As a program
/// does it, a write is a delete and an add in one staged scope of `StoreKeychain`.
class Store
{
public:
    explicit Store(Place place, Below below = Below::machine);
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    platform::KeychainStatus put(std::string_view key, std::uint64_t number);
    platform::KeychainStatus add(std::string_view key, std::uint64_t number);
    platform::KeychainStatus remove(std::string_view key);
    platform::KeychainStatus removeAll();

    /// Changes the data where they lie; does nothing where there are none.
    platform::KeychainStatus update(std::string_view key, std::uint64_t number);

    /// Deletes `deleted` and adds `added` in one scope: if that one is there, the scope is refused
    /// with `duplicateItem` and carries out the delete alone.
    platform::KeychainStatus replace(std::string_view deleted, std::string_view added,
                                     std::uint64_t number);

    struct Found
    {
        platform::KeychainStatus status = platform::KeychainStatus::success;
        /// Which write the value is of; nothing when it is damaged, empty or another key's.
        std::optional<std::uint64_t> number = {};
    };
    Found get(std::string_view key);

    struct Listing
    {
        platform::KeychainStatus status = platform::KeychainStatus::success;
        State numbers = {};
        /// What is wrong with an item: a damaged value, a key that stands twice.
        std::string fault = {};
    };
    /// All items with their values; none is a success here.
    Listing all();

    /// `notAvailable` where items are not kept under a passphrase.
    platform::KeychainStatus changePassphrase(std::uint64_t number);

    /// What the store said about its last failures, for messages.
    std::string diagnostics() const;

private:
    struct Diagnostics;

    Place place_;
    const std::shared_ptr<Diagnostics> diagnostics_;
    std::shared_ptr<platform::EmbeddedItemStore> embedded_;
    std::shared_ptr<platform::ItemStore> items_;
    std::shared_ptr<platform::Keychain> keychain_;
};

/// Whether the call was carried out: what it found there may not be known to the caller.
bool isAnswer(platform::KeychainStatus status);

/// The keys that most runs use: one with a NUL, one that is not ASCII, one that is long.
const std::string& keyAt(std::size_t index);
inline constexpr std::size_t keyCount = 6;

/// A write whose value has a length in these bounds.
std::uint64_t writeOfLength(std::string_view key, std::size_t least, std::size_t most);

/// For messages.
std::string shown(std::string_view key);
std::string shown(platform::KeychainStatus status);
std::string shown(const std::optional<std::uint64_t>& number);

}  // namespace soak
