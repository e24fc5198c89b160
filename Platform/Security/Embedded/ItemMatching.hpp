#pragma once

#include "Platform/Security/Embedded/ItemTable.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <cstddef>
#include <optional>
#include <vector>

namespace platform
{

/// The rows that match and are to be changed, in the order of the answer; inside a transaction. A
/// row that was asked for by name is proved genuine by itself, any others by the digest of all. An
/// empty result says nothing before `requireNoneMissing`.
std::vector<ItemRow> matching(ItemTable& table, const ItemPattern& pattern);

/// Throws unless whatever of the pattern was not found does not exist.
void requireNoneMissing(ItemTable& table, const ItemPattern& pattern);

/// The rows that answer a question which at most `limit` of them are wanted of; there may be more.
/// As `matching`, but rows asked for by name are not proved where `valuesFollow`, since opening the
/// value does. That no better row is missing is proved here: where one that ranks before or among
/// them was damaged or taken away, it throws, and an empty result says that there is none.
std::vector<ItemRow> answering(ItemTable& table, const ItemPattern& pattern, bool valuesFollow,
                               std::size_t limit);

/// The common case, without a transaction: one item's value by its name, in the first group.
/// Nothing where there is more to it, the answer that there is no such item included.
std::optional<KeychainItem> taken(ItemTable& table, const ItemPattern& pattern);

}  // namespace platform
