#include "Platform/Security/SecretService/SecretOperations.hpp"

#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

namespace platform::secretOperations
{
namespace
{

using Records = std::vector<SecretItemRecord>;

/// How often a read begins anew because an item came or went between two of its calls.
constexpr int attempts = 100;

SecretServiceFailure unsteady()
{
    return {KeychainStatus::notAvailable, "The items of the Secret Service change all the time",
            "Try again; look for a program that writes without end"};
}

/// All copies of one item, the one that counts last.
using Copies = Records;

bool countsLess(const SecretItemRecord& left, const SecretItemRecord& right)
{
    return std::tie(left.modified, left.created, left.path) <
           std::tie(right.modified, right.created, right.path);
}

std::vector<Copies> byIdentity(Records records)
{
    std::map<KeychainIdentity, Copies> copies;
    for (auto& record : records)
        copies[record.item.identity].push_back(std::move(record));
    std::vector<Copies> all;
    for (auto& [identity, some] : copies)
    {
        std::ranges::sort(some, countsLess);
        all.push_back(std::move(some));
    }
    return all;
}

std::vector<std::string> groupsOf(const ItemPattern& pattern)
{
    std::vector<std::string> groups;
    for (const auto& group : pattern.accessGroups)
        if (std::ranges::find(groups, group) == groups.end())
            groups.push_back(group);
    return groups;
}

std::vector<secretItem::Attributes> searchesFor(const ItemPattern& pattern)
{
    std::vector<secretItem::Attributes> searches;
    for (const auto& group : groupsOf(pattern))
        searches.push_back(secretItem::searchAttributes(pattern, group));
    return searches;
}

/// Whether a search of one group can find one item at most: where it found it, no other can be
/// hidden.
bool namesOneItem(const ItemPattern& pattern)
{
    return pattern.service && pattern.account;
}

using Found = std::vector<std::vector<std::string>>;

/// The searches that found nothing, each of which a locked collection may have hidden an item from.
std::vector<secretItem::Attributes> unanswered(const std::vector<secretItem::Attributes>& searches,
                                               const Found& found)
{
    std::vector<secretItem::Attributes> some;
    for (std::size_t index = 0; index < searches.size(); ++index)
        if (found[index].empty())
            some.push_back(searches[index]);
    return some;
}

/// Whether a hidden item of a group that was found empty would belong into the answer: it is not
/// full, or its last item is of a later group.
bool couldHideOne(const ItemPattern& pattern, const Found& found, const Records& answer,
                  std::size_t limit)
{
    const auto groups = groupsOf(pattern);
    const auto empty = std::ranges::find_if(found, [](auto& some) { return some.empty(); });
    if (empty == found.end())
        return false;
    if (answer.empty() || answer.size() < limit)
        return true;
    const auto last = std::ranges::find(groups, answer.back().item.identity.accessGroup);
    return last - groups.begin() > empty - found.begin();
}

/// Where the searches found at most one path each and say all about identity, the properties need
/// not be read.
std::optional<Records> recordsFromSearch(const ItemPattern& pattern, const Found& found)
{
    if (!namesOneItem(pattern))
        return std::nullopt;
    const auto groups = groupsOf(pattern);
    Records records;
    for (std::size_t index = 0; index < found.size(); ++index)
    {
        if (found[index].size() > 1)
            return std::nullopt;
        if (found[index].empty())
            continue;
        SecretItemRecord record;
        record.path = found[index].front();
        record.item.identity = {*pattern.service, *pattern.account, groups[index],
                                pattern.synchronizable};
        records.push_back(std::move(record));
    }
    return records;
}

/// The records of all paths, or nothing where one has gone.
std::optional<Records> readRecords(SecretItems& items, const Found& found)
{
    // One search can find what another found.
    std::set<std::string> paths;
    for (const auto& some : found)
        paths.insert(some.begin(), some.end());
    if (paths.empty())
        return Records();
    Records records;
    for (auto& record : items.properties({paths.begin(), paths.end()}))
    {
        if (!record)
            return std::nullopt;
        records.push_back(std::move(*record));
    }
    return records;
}

void sortAndLimit(Records& records, const ItemPattern& pattern, std::size_t limit)
{
    const auto place = [groups = groupsOf(pattern)](const SecretItemRecord& record)
    {
        const auto& identity = record.item.identity;
        return std::tuple(std::ranges::find(groups, identity.accessGroup) - groups.begin(),
                          identity.service, identity.account);
    };
    std::ranges::sort(records, {}, place);
    if (records.size() > limit)
        records.resize(limit);
}

bool isUnmatched(const ItemPattern& pattern, const SecretItemRecord& record)
{
    return !pattern.matches(record.item);
}

/// What was found but for the records that are unfinished; nothing where none is.
std::optional<Found> withoutUnfinished(const Records& records, const Found& found)
{
    std::set<std::string> unfinished;
    for (const auto& record : records)
        if (record.unfinished)
            unfinished.insert(record.path);
    if (unfinished.empty())
        return std::nullopt;
    auto finished = found;
    for (auto& some : finished)
        std::erase_if(some, [&](const auto& path) { return unfinished.contains(path); });
    return finished;
}

/// What was found, in order; nothing where an item went away meanwhile.
std::optional<Records> readFound(SecretItems& items, const ItemPattern& pattern,
                                 ItemContent content, std::size_t limit, const Found& found)
{
    const auto unmatched = [&pattern](const auto& record) { return isUnmatched(pattern, record); };
    if (content == ItemContent::attributesAndData)
        if (auto records = recordsFromSearch(pattern, found))
        {
            if (!items.readData(*records))
                return std::nullopt;
            if (const auto finished = withoutUnfinished(*records, found))
                return readFound(items, pattern, content, limit, *finished);
            // What the items demand is known from here on.
            std::erase_if(*records, unmatched);
            sortAndLimit(*records, pattern, limit);
            return records;
        }

    auto all = readRecords(items, found);
    if (!all)
        return std::nullopt;
    Records records;
    for (auto& copies : byIdentity(std::move(*all)))
        if (pattern.matches(copies.back().item))
            records.push_back(std::move(copies.back()));
    sortAndLimit(records, pattern, limit);
    if (content == ItemContent::attributesAndData && !records.empty())
    {
        if (!items.readData(records))
            return std::nullopt;
        if (const auto finished = withoutUnfinished(records, found))
            return readFound(items, pattern, content, limit, *finished);
        std::erase_if(records, unmatched);
    }
    return records;
}

/// One attempt; nothing where an item came or went meanwhile.
std::optional<Records> tryCopy(SecretItems& items, const ItemPattern& pattern, ItemContent content,
                               std::size_t limit)
{
    const auto searches = searchesFor(pattern);
    const auto found = items.search(searches);
    const auto empty = unanswered(searches, found);
    const bool nothing = empty.size() == searches.size();
    const bool asksFirst = nothing || !namesOneItem(pattern);
    if (asksFirst && !items.isNothingHidden(empty))
        return std::nullopt;
    if (nothing)
        return Records();
    auto records = readFound(items, pattern, content, limit, found);
    if (records && !asksFirst && couldHideOne(pattern, found, *records, limit) &&
        !items.isNothingHidden(empty))
        return std::nullopt;
    // Found, and yet nothing: an unfinished item, or one that demands something else.
    if (records && records->empty() && !asksFirst && !items.isNothingHidden({}))
        return std::nullopt;
    return records;
}

/// What a write is about: all copies of all items that it looks at.
std::vector<Copies> read(SecretItems& items, const std::vector<secretItem::Attributes>& searches,
                         bool eachNamesOneItem)
{
    for (int attempt = 0; attempt < attempts; ++attempt)
    {
        const auto found = items.search(searches);
        const auto empty = unanswered(searches, found);
        if ((!empty.empty() || !eachNamesOneItem) && !items.isNothingHidden(empty))
            continue;
        if (empty.size() == searches.size())
            return {};
        if (auto records = readRecords(items, found))
            return byIdentity(std::move(*records));
    }
    throw unsteady();
}

std::vector<std::string> pathsOf(const Copies& copies)
{
    std::vector<std::string> paths;
    for (const auto& copy : copies)
        paths.push_back(copy.path);
    return paths;
}

void removeAllButLast(SecretItems& items, Copies& copies)
{
    if (copies.size() < 2)
        return;
    auto paths = pathsOf(copies);
    paths.pop_back();
    items.remove(paths);
    copies.erase(copies.begin(), copies.end() - 1);
}

/// Puts the item where its last copy is, in one step for every reader.
void replaceInPlace(SecretItems& items, Copies& copies, const KeychainItem& item,
                    const SecretBytes& text)
{
    removeAllButLast(items, copies);
    const auto& last = copies.front();
    items.create(SecretItems::collectionOf(last.path), item, text);
    // The service replaces an item of equal attributes alone. What demands something else is a new
    // item to it, and the old one a duplicate from here on.
    if (last.item.accessible != item.accessible || last.item.accessControl != item.accessControl)
        items.remove({last.path});
}

/// Whether no copy has a secret, so that there is no such item.
bool isUnfinished(SecretItems& items, Copies copies)
{
    return items.readData(copies) &&
           std::ranges::all_of(copies, [](const auto& copy) { return copy.unfinished; });
}

}  // namespace

KeychainAnswer copyMatching(SecretItems& items, const ItemPattern& pattern, ItemContent content,
                            std::size_t limit)
{
    for (int attempt = 0; attempt < attempts; ++attempt)
    {
        auto records = tryCopy(items, pattern, content, limit);
        if (!records)
            continue;
        KeychainAnswer answer;
        for (auto& record : *records)
            answer.items.push_back(std::move(record.item));
        if (answer.items.empty())
            answer.status = KeychainStatus::itemNotFound;
        return answer;
    }
    throw unsteady();
}

KeychainStatus store(SecretItems& items, const Collection& collection, const ItemPattern* old,
                     const KeychainItem& item, const SecretBytes& text)
{
    const auto identity = secretItem::identityAttributes(item.identity);
    auto searches = old ? searchesFor(*old) : std::vector<secretItem::Attributes>();
    if (std::ranges::find(searches, identity) == searches.end())
        searches.push_back(identity);
    auto all = read(items, searches, !old || namesOneItem(*old));

    const auto matches = [old](const Copies& copies)
    { return old && old->matches(copies.back().item); };
    const auto isThis = [&item](const Copies& copies)
    { return copies.back().item.identity == item.identity; };
    const auto existing = std::ranges::find_if(all, isThis);
    const bool mayReplace =
        existing != all.end() && (matches(*existing) || isUnfinished(items, *existing));
    if (existing == all.end())
        items.create(collection, item, text);
    else if (mayReplace)
        replaceInPlace(items, *existing, item, text);

    std::vector<std::string> others;
    for (const auto& copies : all)
        if (!isThis(copies) && matches(copies))
            std::ranges::copy(pathsOf(copies), std::back_inserter(others));
    if (!others.empty())
        items.remove(others);
    return existing == all.end() || mayReplace ? KeychainStatus::success
                                               : KeychainStatus::duplicateItem;
}

KeychainStatus deleteMatching(SecretItems& items, const ItemPattern& pattern)
{
    // Of each item the copies that do not count go first: it is itself until it is gone.
    std::vector<std::string> paths;
    for (const auto& copies : read(items, searchesFor(pattern), namesOneItem(pattern)))
        if (pattern.matches(copies.back().item))
            std::ranges::copy(pathsOf(copies), std::back_inserter(paths));
    if (paths.empty())
        return KeychainStatus::itemNotFound;
    items.remove(paths);
    return KeychainStatus::success;
}

}  // namespace platform::secretOperations
