#pragma once

#include "tests/support/MemoryItemStore.hpp"

#include <functional>
#include <memory>
#include <optional>

namespace simulation
{

enum class Item
{
    token,
    info,
    other
};

/// One operation on an item, as it ended.
struct ItemCall
{
    enum class Kind
    {
        read,
        write,
        removal
    };
    int host = -1;
    Kind kind = Kind::read;
    Item item = Item::other;
    platform::KeychainStatus status = platform::KeychainStatus::success;
    /// What was read, written or there before it was removed.
    std::string text;
};

/// The way of one host's account to the items that all share. It reports each call, and refuses the
/// next one of a kind when it is told to.
class WatchedItems final : public platform::ItemStore
{
public:
    using OnCall = std::function<void(const ItemCall&)>;

    WatchedItems(std::shared_ptr<MemoryItemStore> items, int host, OnCall onCall)
        : items_(std::move(items)), host_(host), onCall_(std::move(onCall))
    {}

    void failNext(ItemCall::Kind kind, platform::KeychainStatus status)
    {
        fault_ = Fault{kind, status};
    }
    void failNothing() { fault_.reset(); }

    platform::KeychainStatus add(const platform::KeychainItem& item) override;
    platform::KeychainStatus replace(const platform::ItemPattern& old,
                                     const platform::KeychainItem& item) override;
    platform::KeychainAnswer copyMatching(const platform::ItemPattern& pattern,
                                          platform::ItemContent content,
                                          std::size_t limit) override;
    platform::KeychainStatus deleteMatching(const platform::ItemPattern& pattern) override;
    platform::KeychainStatus update(
        const platform::KeychainIdentity& identity,
        const std::function<std::optional<platform::SecretBytes>(const platform::SecretBytes*)>&
            change) override
    {
        return items_->update(identity, change);
    }

private:
    struct Fault
    {
        ItemCall::Kind kind;
        platform::KeychainStatus status;
    };

    std::optional<platform::KeychainStatus> refusal(ItemCall::Kind kind);
    void tell(ItemCall::Kind kind, const std::string& account, platform::KeychainStatus status,
              std::string text) const;

    const std::shared_ptr<MemoryItemStore> items_;
    const int host_;
    const OnCall onCall_;
    std::optional<Fault> fault_;
};

std::string textOf(const platform::SecretBytes& data);

}  // namespace simulation
