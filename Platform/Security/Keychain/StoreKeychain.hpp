#pragma once

#include "Platform/Security/Authentication/ItemProtection.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform
{

/// Whose program asks, and what it may see. Between programs of one user this is policy, not
/// cryptography: each of them can read what the others can.
struct KeychainProgram
{
    /// A fixed name, for example "org.example.writer"; the access group of items that name none.
    /// A program that changes it no longer finds its items.
    std::string identifier = {};
    /// The further groups whose items this program sees.
    std::vector<std::string> accessGroups = {};
    /// Whether groups that begin with "group." need no listing.
    bool opensSharedGroups = true;
};

/// On whose behalf a keychain works, as it is at one call.
struct KeychainSurroundings
{
    KeychainProgram program;
    ProtectionServices protection;
};

/// The one real `Keychain`, over any store of items: reads and checks the queries, decides who sees
/// what, and puts the user's consent between a protected item and its reader. It has no state of
/// its own, so that several may stand over one store.
class StoreKeychain final : public Keychain
{
public:
    /// `surroundings` is asked at every operation, so that a host may replace them at any time.
    StoreKeychain(std::shared_ptr<ItemStore> store,
                  std::function<KeychainSurroundings()> surroundings);

    KeychainStatus add(const KeychainQuery& attributes) override;
    KeychainAnswer copyMatching(const KeychainQuery& query) override;
    KeychainStatus deleteMatching(const KeychainQuery& query) override;
    std::unique_ptr<KeychainStagedScope> stage() override;

    const std::shared_ptr<ItemStore>& store() const noexcept { return store_; }

private:
    class Staged;

    KeychainSurroundings surroundings() const;
    KeychainStatus addReplacing(const KeychainQuery& attributes,
                                const KeychainSurroundings& surroundings, const ItemPattern* old);

    const std::shared_ptr<ItemStore> store_;
    const std::function<KeychainSurroundings()> makeSurroundings_;
    ItemProtection protection_;
};

}  // namespace platform
