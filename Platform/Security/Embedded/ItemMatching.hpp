#pragma once

#include "Platform/Security/Embedded/ItemTable.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <optional>
#include <vector>

namespace platform
{

/// The rows that match, in the order of the answer; inside a transaction. A row that was asked for
/// by name is proved genuine by itself unless its value will be opened, any others by the digest of
/// all. An empty answer says nothing before `ItemTable::requireComplete`.
std::vector<ItemRow> matching(ItemTable& table, const ItemPattern& pattern, bool valuesFollow);

/// The common case, without a transaction: one item's value by its name. Nothing where there is
/// more to it, the answer that there is no such item included.
std::optional<KeychainItem> taken(ItemTable& table, const ItemPattern& pattern);

}  // namespace platform
