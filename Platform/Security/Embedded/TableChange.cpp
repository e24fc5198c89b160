#include "Platform/Security/Embedded/TableChange.hpp"

namespace platform
{

TableChange::TableChange(ItemTable& table, Transactions& statements)
    : table_(table),
      transaction_(statements, Transaction::Kind::write),
      header_(table.header()),
      knowsItems_(table.knowsItems())
{}

void TableChange::insert(const KeychainItem& item)
{
    const auto row = table_.insert(item);
    const auto mark = table_.mark(row);
    changes_.emplace_back(row.number, mark);
    header_.digest.add(mark);
    ++header_.items;
}

void TableChange::erase(const ItemRow& row)
{
    table_.erase(row);
    changes_.emplace_back(row.number, std::nullopt);
    header_.digest.subtract(table_.mark(row));
    --header_.items;
}

void TableChange::commit()
{
    if (header_.log == LogState::merged)
        header_.log = LogState::needed;
    table_.write(header_);
    transaction_.commit();
    if (knowsItems_)
        table_.committed(changes_);
    else
        table_.forget();
}

}  // namespace platform
