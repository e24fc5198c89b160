#pragma once

#include "Platform/Security/Embedded/Database.hpp"
#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Embedded/ItemTable.hpp"
#include "Platform/Security/Embedded/MasterKey.hpp"
#include "Platform/Security/Embedded/StoreFolder.hpp"
#include "Platform/Security/Embedded/Transaction.hpp"

#include <memory>
#include <optional>

namespace platform
{

/// A store that is in use: its key, its connection, and the files that it was opened from.
class OpenStore
{
public:
    /// `places` must name a database that has its tables. Throws `StoreFault`.
    OpenStore(const StorePlaces& places, const EmbeddedItemStore::Configuration& configuration,
              std::shared_ptr<const MasterKey> key, const Patience& patience);

    /// Merges the log if this is the last connection of all programs, so that one file is left.
    ~OpenStore();
    OpenStore(const OpenStore&) = delete;
    OpenStore& operator=(const OpenStore&) = delete;

    /// Whether the database under the store's name still is the one that is open.
    bool isInPlace() const;
    /// Whether its log is too. Without, what is written is lost at the next start.
    bool isLogInPlace() const;

    ItemTable& table() noexcept { return *table_; }
    Transactions& transactions() noexcept { return *transactions_; }
    Database& database() noexcept { return database_; }

    /// To be called after each commit, and before it is acknowledged. Throws `inputOutput` where
    /// the files were taken away meanwhile and the commit with them. That the log cannot be merged
    /// is reported, and no more than that: the commit stands in the log.
    void secureCommit();

private:
    void keepLogShort();
    void reportLostLog() const;
    void recover();
    void closeAlone();
    bool merge();

    const StorePlaces places_;
    const DiagnosticSink& diagnostics_;
    const std::shared_ptr<const MasterKey> key_;
    const FileFacts file_;
    FileFacts log_;
    Database database_;
    std::optional<Transactions> transactions_;
    std::optional<ItemTable> table_;
    /// Whether the database file itself says that its log is needed.
    bool fileNamesLog_ = false;
};

/// Opens the configured store, making what a first start needs: folders, key, database, in this
/// order and each durable before the next. Throws `StoreFault`, and changes nothing where a part is
/// missing that must be there.
std::unique_ptr<OpenStore> openStore(const EmbeddedItemStore::Configuration& configuration,
                                     FileLayer& files, const Patience& patience);

/// Wraps the key of the configured store anew, as `EmbeddedItemStore::changePassphrase` says.
void rewrapKey(const EmbeddedItemStore::Configuration& configuration, FileLayer& files,
               const Patience& patience, const std::optional<SecretString>& current,
               const std::optional<SecretString>& replacement);

}  // namespace platform
