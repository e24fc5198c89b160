#include "Platform/Security/Embedded/ItemMatching.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace platform
{
namespace
{

bool isSingle(const ItemPattern& pattern)
{
    return pattern.service && pattern.account;
}

KeychainIdentity identity(const ItemPattern& pattern, const std::string& group)
{
    return {*pattern.service, *pattern.account, group, pattern.synchronizable};
}

struct Matches
{
    std::vector<ItemRow> rows;
    /// Whether nothing was found in a group that was looked through: it may have been taken away.
    bool gap = false;
};

Matches listed(ItemTable& table, const ItemPattern& pattern)
{
    const auto& groups = pattern.accessGroups;
    const auto place = [&](const ItemRow& row)
    { return std::ranges::find(groups, row.attributes.identity.accessGroup) - groups.begin(); };
    auto rows = table.collect([&](const auto& item) { return pattern.matches(item); });
    std::ranges::sort(rows,
                      [&](const ItemRow& left, const ItemRow& right)
                      {
                          const auto first = place(left);
                          const auto second = place(right);
                          return first != second
                                     ? first < second
                                     : left.attributes.identity < right.attributes.identity;
                      });
    return {std::move(rows)};
}

/// Looks through the groups in their order, and no further than for `limit` rows.
Matches named(ItemTable& table, const ItemPattern& pattern, bool valuesFollow, std::size_t limit)
{
    const auto& groups = pattern.accessGroups;
    Matches found;
    for (auto group = groups.begin(); group != groups.end() && found.rows.size() < limit; ++group)
    {
        if (std::find(groups.begin(), group, *group) != group)
            continue;
        auto row = table.find(identity(pattern, *group));
        if (!row)
        {
            found.gap = true;
            continue;
        }
        const bool matches = pattern.matches(row->attributes);
        if (!matches || !valuesFollow)
            table.requireGenuine(*row);
        if (matches)
            found.rows.push_back(std::move(*row));
    }
    return found;
}

}  // namespace

void requireNoneMissing(ItemTable& table, const ItemPattern& pattern)
{
    table.requireComplete();
    if (isSingle(pattern))
        for (const auto& group : pattern.accessGroups)
            table.requireAbsent(identity(pattern, group));
}

std::vector<ItemRow> matching(ItemTable& table, const ItemPattern& pattern)
{
    constexpr auto all = std::numeric_limits<std::size_t>::max();
    return (isSingle(pattern) ? named(table, pattern, false, all) : listed(table, pattern)).rows;
}

std::vector<ItemRow> answering(ItemTable& table, const ItemPattern& pattern, bool valuesFollow,
                               std::size_t limit)
{
    auto found = isSingle(pattern)
                     ? named(table, pattern, valuesFollow, std::max<std::size_t>(limit, 1))
                     : listed(table, pattern);
    if (found.gap || found.rows.empty())
        requireNoneMissing(table, pattern);
    return std::move(found.rows);
}

std::optional<KeychainItem> taken(ItemTable& table, const ItemPattern& pattern)
{
    if (!isSingle(pattern) || pattern.accessGroups.empty())
        return std::nullopt;
    auto item = table.take(identity(pattern, pattern.accessGroups.front()));
    return item && pattern.matches(*item) ? std::move(item) : std::nullopt;
}

}  // namespace platform
