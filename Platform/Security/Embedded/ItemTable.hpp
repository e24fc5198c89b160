#pragma once

#include "Platform/Security/Embedded/Database.hpp"
#include "Platform/Security/Embedded/MasterKey.hpp"
#include "Platform/Security/Embedded/Sealing.hpp"
#include "Platform/Security/Embedded/StoreHeader.hpp"
#include "Platform/Security/Embedded/Transaction.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace platform
{

/// An item as its row holds it, without its value. Whether it is what once was stored is not known
/// before its seal was opened or its mark compared.
struct ItemRow
{
    std::int64_t number = 0;
    KeychainItem attributes;
    Seal seal{};
};

/// The tables of the store: the header and the items, read and checked. Every function but the
/// constructor and `take` is called inside a transaction, and throws `StoreFault`, with `damaged`
/// for whatever is not as it was written.
class ItemTable
{
public:
    /// Whether the database holds nothing at all, as before its first transaction.
    static bool isMissing(Database& database);
    /// Makes the tables of a store without items.
    static void make(Database& database, const MasterKey& key);

    /// Whether the file is a store that this program may open, and of this key. To be asked before
    /// anything is read from it.
    static void check(Database& database, const MasterKey& key);

    ItemTable(Database& database, std::shared_ptr<const MasterKey> key);

    StoreHeader header() { return readHeader(readHeader_, *key_); }
    void write(const StoreHeader& header);

    /// The whole item, proved genuine, in one step that needs no transaction around it; nothing
    /// where that cannot be had, for whatever reason.
    std::optional<KeychainItem> take(const KeychainIdentity& identity);

    /// The row of an identity, whatever it holds.
    std::optional<ItemRow> find(const KeychainIdentity& identity);

    /// The row's value, which shows that the row is what was stored.
    SecretBytes value(const ItemRow& row);

    /// Throws unless the row is what was stored.
    void requireGenuine(const ItemRow& row);

    /// All rows that `wanted` picks, after count and digest of all rows were checked.
    std::vector<ItemRow> collect(const std::function<bool(const KeychainItem&)>& wanted);

    /// Throws unless all items that were stored are there, so that one that is not found does not
    /// exist. Cheap while nobody else has changed the file.
    void requireComplete();

    /// The same for one item that was looked for by its name and not found: damage between the
    /// pages can hide a row from a search that a walk through all rows still meets.
    void requireAbsent(const KeychainIdentity& identity);

    ItemRow insert(const KeychainItem& item);
    void erase(const ItemRow& row);

    ItemMark mark(const ItemRow& row) const { return sealing_.mark(row.attributes, row.seal); }

    /// Whether the items are known as they stood when this transaction began. If so, whoever
    /// changes them says after the commit which were added and removed, and else that they are
    /// known no more.
    bool knowsItems();
    using Changes = std::vector<std::pair<std::int64_t, std::optional<ItemMark>>>;
    void committed(const Changes& changes);
    void forget();

private:
    /// The marks of all items, as they were when count and digest last were checked. While nobody
    /// else changes the file, a row must be there and be like this, even if its page is read again
    /// from a disk that has gone bad.
    struct Known
    {
        std::uint32_t changes = 0;
        std::unordered_map<std::int64_t, ItemMark> marks;
        bool logLost = false;
    };

    static StoreHeader readHeader(Statement& statement, const MasterKey& key);
    static ItemRow read(const Statement::Use& row, std::int64_t number);

    Database& database_;
    std::shared_ptr<const MasterKey> key_;
    Sealing sealing_;
    Statement readHeader_, writeHeader_, take_, find_, value_, all_, insert_, erase_;
    std::optional<Known> known_;
};

}  // namespace platform
