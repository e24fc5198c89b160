#pragma once

#include "Platform/Security/Keychain/Keychain.hpp"
#include "Valet/SecureEnclaveValet.hpp"
#include "Valet/SinglePromptSecureEnclaveValet.hpp"
#include "Valet/Valet.hpp"
#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace commandline
{

/// The store that a person named, of whichever class, in the keychain of the process. What it
/// throws are `valet::KeychainError`s.
class NamedStore
{
public:
    /// The selection must name a store.
    explicit NamedStore(const StoreSelection& selection);

    /// The name that its items have in the keychain.
    std::string service() const;

    void set(platform::SecretBytes value, const std::string& key) const;
    platform::SecretBytes get(const std::string& key, const std::string& prompt) const;
    bool contains(const std::string& key) const;
    void remove(const std::string& key) const;
    void removeAll() const;

    /// In order. Reads attributes alone, so that nobody is asked whatever the store.
    std::vector<std::string> keys() const;

private:
    using Any =
        std::variant<std::shared_ptr<valet::Valet>, std::shared_ptr<valet::SecureEnclaveValet>,
                     std::shared_ptr<valet::SinglePromptSecureEnclaveValet>>;
    static Any make(const StoreSelection& selection);

    Any store_;
};

/// One store as the list of stores has it.
struct StoreSummary
{
    std::string service;
    std::string accessGroup;
    bool synchronizable = false;
    /// Those that its items have, by name.
    std::vector<std::string> accessibilities;
    std::vector<std::string> accessControls;
    /// Without the canary.
    std::size_t items = 0;
    bool hasCanary = false;
};

/// All stores whose items the program of the process sees, in order. Reads attributes alone.
std::vector<StoreSummary> visibleStores(platform::Keychain& keychain);

/// The account and the value of the item by which a store tries whether a keychain works.
inline constexpr std::string_view canaryKey = "VAL_KeychainCanaryUsername";
inline constexpr std::string_view canaryValue = "VAL_ProbeItemSecretValue77";

/// Throws what stores throw, unless the status is success.
void check(platform::KeychainStatus status);

}  // namespace commandline
