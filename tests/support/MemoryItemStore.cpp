#include "tests/support/MemoryItemStore.hpp"

using namespace platform;

KeychainStatus MemoryItemStore::add(const KeychainItem& item)
{
    const std::lock_guard lock(mutex_);
    if (const auto failed = writeFailure())
        return *failed;
    return items_.emplace(item.identity, item).second ? KeychainStatus::success
                                                      : KeychainStatus::duplicateItem;
}

KeychainStatus MemoryItemStore::replace(const ItemPattern& old, const KeychainItem& item)
{
    const std::lock_guard lock(mutex_);
    if (const auto failed = writeFailure())
        return *failed;
    erase(old);
    return items_.emplace(item.identity, item).second ? KeychainStatus::success
                                                      : KeychainStatus::duplicateItem;
}

KeychainAnswer MemoryItemStore::copyMatching(const ItemPattern& pattern, ItemContent content,
                                             std::size_t limit)
{
    const std::lock_guard lock(mutex_);
    if (failure_)
        return {*failure_, {}};
    KeychainAnswer answer;
    for (const auto& group : pattern.accessGroups)
        for (const auto& [identity, item] : items_)
            if (identity.accessGroup == group && pattern.matches(item) &&
                answer.items.size() < limit)
            {
                answer.items.push_back(item);
                if (content == ItemContent::attributes)
                    answer.items.back().data.clear();
            }
    if (answer.items.empty())
        answer.status = KeychainStatus::itemNotFound;
    return answer;
}

KeychainStatus MemoryItemStore::deleteMatching(const ItemPattern& pattern)
{
    const std::lock_guard lock(mutex_);
    if (const auto failed = writeFailure())
        return *failed;
    return erase(pattern) > 0 ? KeychainStatus::success : KeychainStatus::itemNotFound;
}

KeychainStatus MemoryItemStore::update(
    const KeychainIdentity& identity,
    const std::function<std::optional<SecretBytes>(const SecretBytes*)>& change)
{
    const std::lock_guard lock(mutex_);
    if (const auto failed = writeFailure())
        return *failed;
    const auto place = items_.find(identity);
    auto changed = change(place == items_.end() ? nullptr : &place->second.data);
    if (!changed)
        return KeychainStatus::success;
    if (changed->empty())
        items_.erase(identity);
    else if (place != items_.end())
        place->second.data = std::move(*changed);
    else
        items_.emplace(identity, KeychainItem{.identity = identity, .data = std::move(*changed)});
    return KeychainStatus::success;
}

void MemoryItemStore::fail(std::optional<KeychainStatus> status)
{
    const std::lock_guard lock(mutex_);
    failure_ = status;
}

void MemoryItemStore::failAfterWrites(int writes, KeychainStatus status)
{
    const std::lock_guard lock(mutex_);
    failureToCome_ = {writes, status};
}

std::optional<KeychainStatus> MemoryItemStore::writeFailure()
{
    if (failureToCome_ && failureToCome_->first-- <= 0)
        failure_ = std::exchange(failureToCome_, std::nullopt)->second;
    return failure_;
}

std::map<KeychainIdentity, KeychainItem> MemoryItemStore::items() const
{
    const std::lock_guard lock(mutex_);
    return items_;
}

void MemoryItemStore::put(KeychainItem item)
{
    const std::lock_guard lock(mutex_);
    auto identity = item.identity;
    items_.insert_or_assign(std::move(identity), std::move(item));
}

std::size_t MemoryItemStore::erase(const ItemPattern& pattern)
{
    return std::erase_if(items_, [&](const auto& entry) { return pattern.matches(entry.second); });
}
