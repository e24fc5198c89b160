#include "Valet/ItemOperations.hpp"

#include "Platform/Coding/Text.hpp"

#include <utility>

namespace valet
{
namespace
{

using platform::KeychainQuery;
using platform::KeychainStatus;
using platform::SecretBytes;
using enum platform::KeychainAttribute;
using enum platform::KeychainMatchLimit;

void requireKey(std::string_view key)
{
    if (key.empty())
        throw KeychainError(KeychainError::emptyKey);
}

SecretBytes bytesOf(std::string_view text)
{
    return SecretBytes(std::as_bytes(std::span(text)));
}

void attach(KeychainQuery& query, const ItemOperations::Context& context)
{
    if (context)
        query.set(kSecUseAuthenticationContext, context);
}

/// For what must never ask the user.
ItemOperations::Context barredContext()
{
    auto context = std::make_shared<platform::LocalAuthenticationContext>();
    context->setInteractionNotAllowed(true);
    return context;
}

KeychainQuery reading(KeychainQuery item, const ItemOperations::Context& context)
{
    item.set(kSecMatchLimit, kSecMatchLimitOne).set(kSecReturnData, true);
    attach(item, context);
    return item;
}

}  // namespace

ItemOperations::ItemOperations(const Service& service, std::shared_ptr<platform::Keychain> keychain)
    : items_(std::move(keychain)),
      protected_(service.configuration().accessControl().has_value()),
      baseQuery_(service.baseQuery(items_.keychain()))
{}

void ItemOperations::setObject(SecretBytes value, std::string_view key) const
{
    requireKey(key);
    if (value.empty())
        throw KeychainError(KeychainError::emptyValue);

    auto item = SecItem::itemQuery(baseQuery_, key);
    const auto old = item.with(kSecMatchLimit, kSecMatchLimitAll);
    item.set(kSecValueData, std::move(value));
    SecItem::check(items_.replace(old, item));
}

void ItemOperations::setString(std::string_view value, std::string_view key) const
{
    requireKey(key);
    // `string` could not give it back, so it must not take the place of a value that is good.
    if (!platform::isValidUTF8(value))
        SecItem::check(KeychainStatus::parameter);
    setObject(bytesOf(value), key);
}

SecretBytes ItemOperations::object(std::string_view key, const Context& context) const
{
    requireKey(key);
    auto answer = items_.copyMatching(reading(SecItem::itemQuery(baseQuery_, key), context));
    SecItem::check(answer.status);
    if (answer.items.empty() || answer.items.front().data.empty())
        throw KeychainError(KeychainError::itemNotFound);
    return std::move(answer.items.front().data);
}

platform::SecretString ItemOperations::string(std::string_view key, const Context& context) const
{
    platform::SecretString text(object(key, context));
    if (!platform::isValidUTF8(text.view()))
        throw KeychainError(KeychainError::itemNotFound);
    return text;
}

bool ItemOperations::containsObject(std::string_view key) const
{
    if (key.empty())
        SecItem::check(KeychainStatus::parameter);

    auto query = SecItem::itemQuery(baseQuery_, key);
    query.set(kSecMatchLimit, kSecMatchLimitOne);
    if (protected_)
        attach(query, barredContext());

    const auto status = items_.copyMatching(query).status;
    if (status == KeychainStatus::itemNotFound)
        return false;
    if (!(protected_ && status == KeychainStatus::interactionNotAllowed))
        SecItem::check(status);
    return true;
}

std::set<std::string> ItemOperations::allKeys(const Context& context) const
{
    auto query = baseQuery_;
    query.set(kSecMatchLimit, kSecMatchLimitAll).set(kSecReturnAttributes, true);
    attach(query, context);

    auto answer = items_.copyMatching(query);
    if (answer.status == KeychainStatus::itemNotFound)
        return {};
    SecItem::check(answer.status);

    std::set<std::string> keys;
    for (auto& item : answer.items)
        keys.insert(std::move(item.identity.account));
    keys.erase(std::string(canaryKey));
    return keys;
}

void ItemOperations::removeObject(std::string_view key) const
{
    requireKey(key);
    SecItem::checkDeleted(items_.deleteMatching(SecItem::itemQuery(baseQuery_, key)));
}

void ItemOperations::removeAllObjects() const
{
    SecItem::checkDeleted(
        items_.deleteMatching(baseQuery_.with(kSecMatchLimit, kSecMatchLimitAll)));
}

bool ItemOperations::canAccessKeychain() const noexcept
{
    try
    {
        const auto base = protected_ ? unprotectedBaseQuery() : baseQuery_;
        return canaryHolds(SecItem::itemQuery(base, canaryKey)) &&
               (!protected_ || machineProtectsItems());
    }
    catch (...)
    {
        return false;
    }
}

bool ItemOperations::canaryHolds(const KeychainQuery& canary) const
{
    const auto expected = bytesOf(canaryValue);
    const auto query = reading(canary, barredContext());
    const auto reads = [&]
    {
        const auto answer = items_.copyMatching(query);
        return answer.status == KeychainStatus::success && !answer.items.empty() &&
               answer.items.front().data == expected;
    };
    if (reads())
        return true;
    // Whether it could be added, the second look tells.
    items_.add(canary.with(kSecValueData, expected));
    return reads();
}

bool ItemOperations::machineProtectsItems() const
{
    if (!baseQuery_.find(kSecAttrAccessControl))
        return false;
    // The canary stands, so that nothing is written: a keychain that could protect the item finds
    // it taken, one that could not says so first.
    const auto item = SecItem::itemQuery(baseQuery_, canaryKey);
    const auto status = items_.add(item.with(kSecValueData, bytesOf(canaryValue)));
    // Unless the canary was just removed by another program.
    if (status == KeychainStatus::success)
        items_.deleteMatching(item);
    return status == KeychainStatus::success || status == KeychainStatus::duplicateItem;
}

KeychainQuery ItemOperations::unprotectedBaseQuery() const
{
    KeychainQuery query;
    for (const auto& [attribute, value] : baseQuery_.entries())
        if (attribute == kSecAttrAccessControl)
            query.set(kSecAttrAccessible,
                      std::get<std::shared_ptr<const platform::AccessControl>>(value)->accessible);
        else
            query.set(attribute, value);
    return query;
}

}  // namespace valet
