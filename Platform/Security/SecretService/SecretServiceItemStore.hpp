#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <chrono>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>

namespace platform
{

/// Items in the desktop's keyring: the freedesktop Secret Service, reached through libsecret, which
/// is looked for when the store is first used. Where it is absent, every operation is
/// `notAvailable`.
///
/// `itemNotFound` is answered only while every collection of the service is unlocked, for the item
/// could be in any of them. An item that is found locked is `interactionNotAllowed`, and what
/// cannot be told `notAvailable`. Store operations never prompt; `unlock()` does.
///
/// The service knows no change of several items at once: a deletion of many, killed in the middle,
/// leaves the rest. Storing, replacing and deleting one item is one step, but for a replacement
/// that changes what the item demands (accessibility, access control): for its last moment both
/// exist, and the one changed last counts.
///
/// A service that is killed while it creates an item may keep it without a value. Nobody is given
/// such an item, the next write takes its place, and its removal succeeds.
///
/// All traffic runs on a GLib thread of its own, with a bus connection of its own, so that neither
/// depends on the host's loops; both start with the first use and end in the destructor, which is
/// `shutdown()`. A store that lives until the process exits needs `shutdown()` before `main`
/// returns. Once any store was used, a process that is forked gets `notAvailable` from all stores:
/// it has none of GLib's threads.
class SecretServiceItemStore final : public ItemStore
{
public:
    /// What may differ from one program to another.
    struct Configuration
    {
        DiagnosticSink diagnostics = {};

        /// How long an operation takes at most, its wait for other writers included.
        std::chrono::milliseconds limit{5000};

        /// Where programs exclude each other from writing; all of them must use the same. Empty:
        /// "tessera" in the session's runtime folder or, without one, the user's data folder.
        std::filesystem::path lockFolder = {};

        /// The alias of the collection that new items go to.
        std::string collection = "default";

        /// The bus. Empty: the session's, as the environment names it when the store is made.
        std::string busAddress = {};

        std::string library = "libsecret-1.so.0";
    };

    explicit SecretServiceItemStore(Configuration configuration);
    ~SecretServiceItemStore() override;

    KeychainStatus add(const KeychainItem& item) override;
    KeychainStatus replace(const ItemPattern& old, const KeychainItem& item) override;
    KeychainAnswer copyMatching(const ItemPattern& pattern, ItemContent content,
                                std::size_t limit) override;
    KeychainStatus deleteMatching(const ItemPattern& pattern) override;
    KeychainStatus update(
        const KeychainIdentity& identity,
        const std::function<std::optional<SecretBytes>(const SecretBytes* stored)>& change)
        override;

    /// Makes the collection for new items where there is none, and unlocks every collection. The
    /// service asks the user, in its own window. `userCancelled` if the user, `ended` or the limit
    /// ends that, `notAvailable` if `shutdown()` does. Other operations go on meanwhile.
    KeychainStatus unlock(std::stop_token ended = {},
                          std::chrono::milliseconds limit = std::chrono::minutes(2));

    /// Ends the operations that are under way, closes the connections and waits for the threads to
    /// end. Later operations are `notAvailable`. May be called again.
    void shutdown();

private:
    struct State;
    const std::unique_ptr<State> state_;
};

}  // namespace platform
