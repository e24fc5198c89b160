#pragma once

#include "Platform/Security/Embedded/ItemTable.hpp"

namespace platform
{

/// A transaction that changes items, and with them the header's count and digest. Nothing has
/// changed unless `commit` returns; if `commit` throws, either all has or nothing.
class TableChange
{
public:
    TableChange(ItemTable& table, Transactions& statements);

    /// There must not be an item of this identity.
    void insert(const KeychainItem& item);
    /// The row must be genuine.
    void erase(const ItemRow& row);
    bool isEmpty() const noexcept { return changes_.empty(); }
    void commit();

private:
    ItemTable& table_;
    Transaction transaction_;
    StoreHeader header_;
    bool knowsItems_;
    ItemTable::Changes changes_;
};

}  // namespace platform
