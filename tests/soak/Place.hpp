#pragma once

#include "Platform/Security/Keychain/ItemStore.hpp"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace soak
{

/// One of the keychains under test, opened anew: what a process that has just started sees.
class Store
{
public:
    virtual ~Store() = default;
    virtual const std::shared_ptr<platform::ItemStore>& items() const = 0;

    /// `notAvailable` where items are not kept under a passphrase.
    virtual platform::KeychainStatus changePassphrase(std::uint64_t number) = 0;

    /// What the store said about its last failures, for messages.
    virtual std::string diagnostics() const = 0;
};

/// Which keychain, and where it lies, as one process tells it to another on its command line.
struct Place
{
    /// Of the embedded keychain: holds the folder of the data and the folder of the key. Of the
    /// Secret Service: where writers exclude each other.
    std::filesystem::path folder;
    /// Where the Secret Service is; empty for the embedded keychain.
    std::string busAddress = {};
    /// Which passphrase wraps the master key; nothing where a file keeps it.
    std::optional<std::uint64_t> passphrase = {};

    bool isSecretService() const { return !busAddress.empty(); }

    std::vector<std::string> arguments() const;
};

enum class Below
{
    machine,
    /// The layers of `WatchedVFS.hpp` and `WatchedFileLayer.hpp`.
    watched,
};

std::unique_ptr<Store> openStore(const Place& place, Below below = Below::machine);

}  // namespace soak
