#include "Platform/Security/Embedded/ItemMatching.hpp"

#include <algorithm>

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

}  // namespace

std::vector<ItemRow> matching(ItemTable& table, const ItemPattern& pattern, bool valuesFollow)
{
    const auto& groups = pattern.accessGroups;
    const auto place = [&](const ItemRow& row)
    { return std::ranges::find(groups, row.attributes.identity.accessGroup) - groups.begin(); };
    if (!isSingle(pattern))
    {
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
        return rows;
    }
    std::vector<ItemRow> rows;
    for (auto group = groups.begin(); group != groups.end(); ++group)
    {
        if (std::find(groups.begin(), group, *group) != group)
            continue;
        auto row = table.find(identity(pattern, *group));
        if (!row)
            continue;
        const bool matches = pattern.matches(row->attributes);
        if (!matches || !valuesFollow)
            table.requireGenuine(*row);
        if (matches)
            rows.push_back(std::move(*row));
    }
    return rows;
}

std::optional<KeychainItem> taken(ItemTable& table, const ItemPattern& pattern)
{
    if (!isSingle(pattern))
        return std::nullopt;
    for (const auto& group : pattern.accessGroups)
    {
        if (auto item = table.take(identity(pattern, group)))
            return pattern.matches(*item) ? std::move(item) : std::nullopt;
    }
    return std::nullopt;
}

}  // namespace platform
