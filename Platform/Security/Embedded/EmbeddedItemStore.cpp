#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"

#include "Platform/Security/Embedded/ItemMatching.hpp"
#include "Platform/Security/Embedded/StoreAccess.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreLimits.hpp"
#include "Platform/Security/Embedded/TableChange.hpp"

#include <algorithm>
#include <utility>

namespace platform
{
namespace
{

void requireStorable(const KeychainItem& item)
{
    const auto& [service, account, group, synchronizable] = item.identity;
    if (service.size() > keychainLimits::service || account.size() > keychainLimits::account ||
        group.size() > keychainLimits::accessGroup || item.data.size() > storeLimits::value)
        throw StoreFault(KeychainStatus::parameter, "The item is too long for the keychain.",
                         "Keep keys to 1 KiB and values to 4 MiB.");
}

}  // namespace

EmbeddedItemStore::EmbeddedItemStore(Configuration configuration)
    : access_(std::make_unique<StoreAccess>(std::move(configuration)))
{}

EmbeddedItemStore::~EmbeddedItemStore() = default;

void EmbeddedItemStore::close() noexcept
{
    access_->close();
}

KeychainStatus EmbeddedItemStore::add(const KeychainItem& item)
{
    return replace(ItemPattern{}, item);
}

KeychainStatus EmbeddedItemStore::replace(const ItemPattern& old, const KeychainItem& item)
{
    return access_->change(
        [&](OpenStore& store)
        {
            requireStorable(item);
            TableChange change(store.table(), store.transactions());
            if (!old.accessGroups.empty())
            {
                for (const auto& row : matching(store.table(), old))
                    change.erase(row);
            }
            const auto rival = store.table().find(item.identity);
            if (rival)
                store.table().requireGenuine(*rival);
            else
                change.insert(item);
            if (!change.isEmpty())
            {
                change.commit();
                store.secureCommit();
            }
            return rival ? KeychainStatus::duplicateItem : KeychainStatus::success;
        });
}

KeychainAnswer EmbeddedItemStore::copyMatching(const ItemPattern& pattern, ItemContent content,
                                               std::size_t limit)
{
    KeychainAnswer answer;
    answer.status = access_->read(
        [&](OpenStore& store)
        {
            const bool withData = content == ItemContent::attributesAndData;
            if (withData && limit == 1)
            {
                if (auto item = taken(store.table(), pattern))
                {
                    answer.items.push_back(std::move(*item));
                    return KeychainStatus::success;
                }
            }
            const Transaction reading(store.transactions(), Transaction::Kind::read);
            auto rows = answering(store.table(), pattern, withData, limit);
            if (rows.empty())
                return KeychainStatus::itemNotFound;
            rows.resize(std::min(limit, rows.size()));
            for (auto& row : rows)
            {
                if (withData)
                    row.attributes.data = store.table().value(row);
                answer.items.push_back(std::move(row.attributes));
            }
            return KeychainStatus::success;
        });
    if (answer.status != KeychainStatus::success)
        answer.items.clear();
    return answer;
}

KeychainStatus EmbeddedItemStore::deleteMatching(const ItemPattern& pattern)
{
    return access_->change(
        [&](OpenStore& store)
        {
            TableChange change(store.table(), store.transactions());
            for (const auto& row : matching(store.table(), pattern))
                change.erase(row);
            if (change.isEmpty())
            {
                requireNoneMissing(store.table(), pattern);
                return KeychainStatus::itemNotFound;
            }
            change.commit();
            store.secureCommit();
            return KeychainStatus::success;
        });
}

KeychainStatus EmbeddedItemStore::update(
    const KeychainIdentity& identity,
    const std::function<std::optional<SecretBytes>(const SecretBytes*)>& change)
{
    return access_->change(
        [&](OpenStore& store)
        {
            KeychainItem item{.identity = identity, .data = {}};
            TableChange tableChange(store.table(), store.transactions());
            const auto row = store.table().find(identity);
            std::optional<SecretBytes> stored;
            if (row)
            {
                stored = store.table().value(*row);
                item.accessible = row->attributes.accessible;
                item.accessControl = row->attributes.accessControl;
            }
            else
                store.table().requireAbsent(identity);
            auto data = change(stored ? &*stored : nullptr);
            if (!data || (data->empty() && !row))
                return KeychainStatus::success;
            item.data = std::move(*data);
            requireStorable(item);
            if (row)
                tableChange.erase(*row);
            if (!item.data.empty())
                tableChange.insert(item);
            tableChange.commit();
            store.secureCommit();
            return KeychainStatus::success;
        });
}

KeychainStatus EmbeddedItemStore::changePassphrase(const std::optional<SecretString>& current,
                                                   const std::optional<SecretString>& replacement)
{
    return access_->rewrap(current, replacement);
}

}  // namespace platform
