#include "tests/soak/Items.hpp"

#include "tests/soak/Value.hpp"

#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include <array>

namespace soak
{

using platform::KeychainItem;
using platform::KeychainMatchLimit;
using platform::KeychainQuery;
using platform::KeychainStatus;
using platform::SecretBytes;
using enum platform::KeychainAttribute;

namespace
{

constexpr auto service = "tessera-soak";
constexpr auto program = "org.example.soak";

KeychainQuery base()
{
    return {{kSecClass, platform::KeychainClass::kSecClassGenericPassword},
            {kSecAttrService, std::string(service)},
            {kSecAttrAccessible, platform::KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock}};
}

KeychainQuery of(std::string_view key)
{
    return base().with(kSecAttrAccount, std::string(key));
}

KeychainQuery everyOne(const KeychainQuery& query)
{
    return query.with(kSecMatchLimit, KeychainMatchLimit::kSecMatchLimitAll);
}

}  // namespace

Items::Items(std::shared_ptr<platform::ItemStore> store) : store_(std::move(store))
{
    platform::KeychainSurroundings surroundings;
    surroundings.program.identifier = program;
    keychain_ =
        std::make_shared<platform::StoreKeychain>(store_, [surroundings] { return surroundings; });
}

KeychainStatus Items::put(std::string_view key, std::uint64_t number)
{
    const auto scope = keychain_->stage();
    const auto deleted = scope->deleteMatching(everyOne(of(key)));
    if (deleted != KeychainStatus::success && deleted != KeychainStatus::itemNotFound)
        return deleted;
    return scope->add(of(key).with(kSecValueData, makeValue(key, number)));
}

KeychainStatus Items::putRefused(std::string_view deleted, std::string_view refused,
                                 std::uint64_t number)
{
    const auto scope = keychain_->stage();
    const auto status = scope->deleteMatching(everyOne(of(deleted)));
    if (status != KeychainStatus::success && status != KeychainStatus::itemNotFound)
        return status;
    return scope->add(of(refused).with(kSecValueData, makeValue(refused, number)));
}

KeychainStatus Items::add(std::string_view key, std::uint64_t number)
{
    return keychain_->add(of(key).with(kSecValueData, makeValue(key, number)));
}

KeychainStatus Items::remove(std::string_view key)
{
    return keychain_->deleteMatching(of(key));
}

KeychainStatus Items::removeAll()
{
    return keychain_->deleteMatching(everyOne(base()));
}

KeychainStatus Items::update(std::string_view key, std::uint64_t number)
{
    const platform::KeychainIdentity identity{.service = service,
                                              .account = std::string(key),
                                              .accessGroup = program,
                                              .synchronizable = false};
    return store_->update(identity,
                          [&](const SecretBytes* stored) -> std::optional<SecretBytes>
                          {
                              if (!stored)
                                  return std::nullopt;
                              return makeValue(key, number);
                          });
}

Items::Found Items::get(std::string_view key)
{
    const auto answer = keychain_->copyMatching(of(key).with(kSecReturnData, true));
    Found found{.status = answer.status, .number = std::nullopt};
    if (answer.status == KeychainStatus::success && answer.items.size() == 1)
        found.number = numberOf(key, answer.items.front().data);
    return found;
}

Items::Listing Items::all()
{
    const auto answer = keychain_->copyMatching(
        everyOne(base()).with(kSecReturnData, true).with(kSecReturnAttributes, true));
    Listing listing{.status = answer.status, .numbers = {}, .fault = {}};
    if (answer.status == KeychainStatus::itemNotFound)
        listing.status = KeychainStatus::success;
    for (const auto& item : answer.items)
    {
        const auto& key = item.identity.account;
        const auto number = numberOf(key, item.data);
        if (!number)
            listing.fault = "the value of " + shown(key) + " is damaged (" +
                            std::to_string(item.data.size()) + " bytes)";
        else if (!listing.numbers.emplace(key, *number).second)
            listing.fault = "there are two items for " + shown(key);
    }
    return listing;
}

const std::string& keyAt(std::size_t index)
{
    static const std::array<std::string, keyCount> keys{"token",
                                                        "refresh token",
                                                        std::string("with\0nul", 8),
                                                        "Schl\xc3\xbcssel",
                                                        std::string(1024, 'k'),
                                                        "a"};
    return keys.at(index);
}

std::string shown(std::string_view key)
{
    if (key.size() > 20)
        return "a key of " + std::to_string(key.size()) + " bytes";
    std::string text(key);
    for (auto& letter : text)
        if (letter == '\0')
            letter = '?';
    return '"' + text + '"';
}

std::string shown(KeychainStatus status)
{
    return "status " + std::to_string(static_cast<int>(status));
}

std::string shown(const std::optional<std::uint64_t>& number)
{
    return number ? "write " + std::to_string(*number) : "nothing";
}

}  // namespace soak
