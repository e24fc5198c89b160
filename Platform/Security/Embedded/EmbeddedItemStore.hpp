#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace platform
{

class FileLayer;
class StoreAccess;

/// The keychain's items in one encrypted file of the user's, shared by all programs of the user.
///
/// Every value is sealed under a random master key, which lies in a file of its own, apart from the
/// data, or is wrapped there under a passphrase. The number of items and a digest of them are
/// authenticated and change with every write, so that damage is told from absence: what is said not
/// to exist does not. docs/security.md says against whom all this helps.
///
/// Nothing is opened before the first operation, and what could not be opened is tried again at the
/// next. Any thread may call; a process that was forked after the first operation gets
/// `notAvailable`, since the locks of the file do not pass to it.
class EmbeddedItemStore final : public ItemStore
{
public:
    /// Where the store lies, and whom it asks.
    struct Configuration
    {
        /// Holds `keychain.db`, and beside it what SQLite needs while the store is open.
        std::filesystem::path dataFolder;
        /// Holds `keychain.key`. A copy of the data folder alone tells nobody a value.
        std::filesystem::path keyFolder;
        /// Asked when the key is wrapped, and when a first key is made, which is wrapped at once.
        /// Nothing means that the user gives none now: the operation is `notAvailable`, and the
        /// next one asks again. So is it for an empty one where a key is made. Unset: a first key
        /// is kept plain. Called inside an operation, whose patience begins anew afterwards; must
        /// not use a store.
        std::function<std::optional<SecretString>()> passphrase;
        /// Whether a first key is kept plain where `passphrase` gives nothing.
        bool firstKeyMayBePlain = false;
        DiagnosticSink diagnostics;
        /// Name of the SQLite file layer (VFS) to use; empty: the system's.
        std::string vfs;
        /// Null: the system's files.
        std::shared_ptr<FileLayer> files;
        /// How long an operation waits in all for other programs and threads.
        std::chrono::milliseconds patience{5000};

        /// The one place of the user's store: $XDG_DATA_HOME/tessera/keychain, and the key in
        /// $XDG_CONFIG_HOME/tessera. Values that are not absolute count as unset, after the XDG
        /// base directory rules. Empty folders where there is no home either; such a store cannot
        /// be opened.
        static Configuration ofUser();
    };

    explicit EmbeddedItemStore(Configuration configuration);
    ~EmbeddedItemStore() override;
    EmbeddedItemStore(const EmbeddedItemStore&) = delete;
    EmbeddedItemStore& operator=(const EmbeddedItemStore&) = delete;

    KeychainStatus add(const KeychainItem& item) override;
    KeychainStatus replace(const ItemPattern& old, const KeychainItem& item) override;
    KeychainAnswer copyMatching(const ItemPattern& pattern, ItemContent content,
                                std::size_t limit) override;
    KeychainStatus deleteMatching(const ItemPattern& pattern) override;
    KeychainStatus update(
        const KeychainIdentity& identity,
        const std::function<std::optional<SecretBytes>(const SecretBytes*)>& change) override;

    /// Wraps the master key under `replacement`, or keeps it plain where there is none. `current`
    /// is the passphrase it is under, if any; a wrong one is `notAvailable` and changes nothing.
    /// Items are not sealed anew, and programs that have the store open go on. Killed at any
    /// instant, the old passphrase works or the new one does.
    KeychainStatus changePassphrase(const std::optional<SecretString>& current,
                                    const std::optional<SecretString>& replacement);

    /// Closes the files as the destructor does, so that the log is merged if no other program has
    /// the store open. For the end of a process that leaves the store to nobody who destroys it;
    /// whoever uses the store afterwards opens it again. Waits for other threads' operations as
    /// long as the patience lasts, and closes nothing if they go on, in a callback of an operation
    /// on the same thread, or in a forked child.
    void close() noexcept;

private:
    const std::unique_ptr<StoreAccess> access_;
};

}  // namespace platform
