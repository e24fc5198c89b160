#pragma once

#include "Tessera/Model/AccountEnvironment.hpp"
#include "tests/simulation/Texts.hpp"
#include "tests/support/MemoryItemStore.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace simulation
{

/// Of the simulated server; all programs share it.
const tessera::AccountEnvironment& environment();
std::string clientKeychainIdentifier(int client);

/// Where the two items of a session lie.
platform::KeychainIdentity tokenIdentity();
platform::KeychainIdentity infoIdentity(int client);

/// Null where there is no item, or one that holds something else.
const Text* storedText(const MemoryItemStore& stored, const platform::KeychainIdentity& identity);

/// As another program, or a fault of the disk, would write it.
void store(MemoryItemStore& stored, const platform::KeychainIdentity& identity, const Text& text);

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
    bool isOnMain = false;
};

/// The way of one host's account to the items that all share. It reports each call, and refuses the
/// next one of a kind when it is told to.
class WatchedItems final : public platform::ItemStore
{
public:
    using Status = platform::KeychainStatus;
    using OnCall = std::function<void(const ItemCall&)>;

    WatchedItems(std::shared_ptr<MemoryItemStore> items, int host, OnCall onCall)
        : items_(std::move(items)), host_(host), onCall_(std::move(onCall))
    {}

    void failNext(ItemCall::Kind kind, Status status) { fault_ = {kind, status}; }
    /// Refuses so many calls, of whatever kind.
    void lock(int calls) { locked_ = calls; }
    void failNothing()
    {
        fault_.reset();
        locked_ = 0;
    }

    Status add(const platform::KeychainItem& item) override;
    Status replace(const platform::ItemPattern& old, const platform::KeychainItem& item) override;
    platform::KeychainAnswer copyMatching(const platform::ItemPattern& pattern,
                                          platform::ItemContent content,
                                          std::size_t limit) override;
    Status deleteMatching(const platform::ItemPattern& pattern) override;
    Status update(
        const platform::KeychainIdentity& identity,
        const std::function<std::optional<platform::SecretBytes>(const platform::SecretBytes*)>&
            change) override
    {
        return items_->update(identity, change);
    }

private:
    std::optional<Status> refusal(ItemCall::Kind kind);
    Status tell(ItemCall::Kind kind, const std::string& account, Status status,
                std::string text = {}) const;

    const std::shared_ptr<MemoryItemStore> items_;
    const int host_;
    const OnCall onCall_;
    std::optional<std::pair<ItemCall::Kind, Status>> fault_;
    int locked_ = 0;
};

}  // namespace simulation
