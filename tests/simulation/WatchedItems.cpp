#include "tests/simulation/WatchedItems.hpp"

namespace simulation
{
namespace
{

using platform::KeychainStatus;
using Kind = ItemCall::Kind;

Item itemOf(const std::string& account)
{
    if (account == "Token")
        return Item::token;
    return account == "Info" ? Item::info : Item::other;
}

}  // namespace

std::string textOf(const platform::SecretBytes& data)
{
    const auto bytes = data.view();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

KeychainStatus WatchedItems::add(const platform::KeychainItem& item)
{
    const auto refused = refusal(Kind::write);
    const auto status = refused ? *refused : items_->add(item);
    tell(Kind::write, item.identity.account, status, textOf(item.data));
    return status;
}

KeychainStatus WatchedItems::replace(const platform::ItemPattern& old,
                                     const platform::KeychainItem& item)
{
    const auto refused = refusal(Kind::write);
    const auto status = refused ? *refused : items_->replace(old, item);
    tell(Kind::write, item.identity.account, status, textOf(item.data));
    return status;
}

platform::KeychainAnswer WatchedItems::copyMatching(const platform::ItemPattern& pattern,
                                                    platform::ItemContent content,
                                                    std::size_t limit)
{
    // A write looks first whether there is something to replace. That is no read of a value.
    if (content == platform::ItemContent::attributes)
        return items_->copyMatching(pattern, content, limit);
    const auto refused = refusal(Kind::read);
    auto answer = refused ? platform::KeychainAnswer{*refused, {}}
                          : items_->copyMatching(pattern, content, limit);
    tell(Kind::read, pattern.account.value_or(""), answer.status,
         answer.items.empty() ? std::string() : textOf(answer.items.front().data));
    return answer;
}

KeychainStatus WatchedItems::deleteMatching(const platform::ItemPattern& pattern)
{
    const auto refused = refusal(Kind::removal);
    const auto status = refused ? *refused : items_->deleteMatching(pattern);
    tell(Kind::removal, pattern.account.value_or(""), status, {});
    return status;
}

std::optional<KeychainStatus> WatchedItems::refusal(Kind kind)
{
    if (!fault_ || fault_->kind != kind)
        return std::nullopt;
    const auto status = fault_->status;
    fault_.reset();
    return status;
}

void WatchedItems::tell(Kind kind, const std::string& account, KeychainStatus status,
                        std::string text) const
{
    onCall_({host_, kind, itemOf(account), status, std::move(text)});
}

}  // namespace simulation
