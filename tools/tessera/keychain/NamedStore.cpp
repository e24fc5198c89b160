#include "tools/tessera/keychain/NamedStore.hpp"

#include "Platform/Security/Keychain/Keychain.hpp"
#include "Platform/Services/Services.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace commandline
{
namespace
{

using platform::AccessControlFlag;
using platform::KeychainAccessible;
using platform::KeychainAttribute;
using platform::KeychainStatus;
using valet::Accessibility;
using valet::CloudAccessibility;
using valet::Identifier;
using valet::KeychainError;
using valet::SecureEnclaveAccessControl;
using valet::SharedGroupIdentifier;

/// The numbers are the same on both sides.
Accessibility accessibility(KeychainAccessible accessible)
{
    return valet::fromRawValue<Accessibility>(static_cast<int>(accessible));
}

CloudAccessibility cloudAccessibility(KeychainAccessible accessible)
{
    return valet::fromRawValue<CloudAccessibility>(static_cast<int>(accessible));
}

SecureEnclaveAccessControl accessControl(AccessControlFlag flag)
{
    switch (flag)
    {
        case AccessControlFlag::anyFingerprint:
            return SecureEnclaveAccessControl::anyFingerprint;
        case AccessControlFlag::currentFingerprintSet:
            return SecureEnclaveAccessControl::currentFingerprintSet;
        case AccessControlFlag::devicePasscode:
            return SecureEnclaveAccessControl::devicePasscode;
        case AccessControlFlag::none:
        case AccessControlFlag::userPresence:
            break;
    }
    return SecureEnclaveAccessControl::userPresence;
}

template <class Store>
std::shared_ptr<Store> makeProtected(const StoreSelection& selection)
{
    const auto control = accessControl(*selection.accessControl);
    const auto identifier = Identifier::make(selection.identifier.value_or(""));
    if (!selection.group)
        return Store::valet(*identifier, control);
    const auto group =
        SharedGroupIdentifier::make(selection.group->prefix, selection.group->identifier);
    return Store::sharedGroupValet(*group, identifier, control);
}

std::shared_ptr<valet::Valet> makeShared(const StoreSelection& selection)
{
    using valet::Valet;
    const auto group =
        *SharedGroupIdentifier::make(selection.group->prefix, selection.group->identifier);
    const auto name = Identifier::make(selection.service ? *selection.service
                                                         : selection.identifier.value_or(""));
    if (selection.synchronizable)
    {
        const auto cloud = cloudAccessibility(selection.accessible);
        return selection.service
                   ? Valet::iCloudSharedGroupValetWithExplicitlySet(group, name, cloud)
                   : Valet::iCloudSharedGroupValet(group, name, cloud);
    }
    const auto local = accessibility(selection.accessible);
    return selection.service ? Valet::sharedGroupValetWithExplicitlySet(group, name, local)
                             : Valet::sharedGroupValet(group, name, local);
}

std::shared_ptr<valet::Valet> makePlain(const StoreSelection& selection)
{
    using valet::Valet;
    if (selection.group)
        return makeShared(selection);
    const auto name =
        *Identifier::make(selection.service ? *selection.service : *selection.identifier);
    if (selection.synchronizable)
    {
        const auto cloud = cloudAccessibility(selection.accessible);
        return selection.service ? Valet::iCloudValetWithExplicitlySet(name, cloud)
                                 : Valet::iCloudValet(name, cloud);
    }
    const auto local = accessibility(selection.accessible);
    return selection.service ? Valet::valetWithExplicitlySet(name, local)
                             : Valet::valet(name, local);
}

std::vector<platform::KeychainItem> attributesOf(platform::Keychain& keychain,
                                                 platform::KeychainQuery query)
{
    query.set(KeychainAttribute::kSecMatchLimit, platform::KeychainMatchLimit::kSecMatchLimitAll);
    query.set(KeychainAttribute::kSecReturnAttributes, true);
    auto answer = keychain.copyMatching(query);
    if (answer.status == KeychainStatus::itemNotFound)
        return {};
    check(answer.status);
    return std::move(answer.items);
}

void addOnce(std::vector<std::string>& names, std::string name)
{
    if (std::ranges::find(names, name) == names.end())
        names.push_back(std::move(name));
}

void add(StoreSummary& store, const platform::KeychainItem& item)
{
    if (item.identity.account == canaryKey)
    {
        store.hasCanary = true;
        return;
    }
    ++store.items;
    addOnce(store.accessibilities, nameOf(item.accessible));
    if (item.accessControl != AccessControlFlag::none)
        addOnce(store.accessControls, nameOf(item.accessControl));
}

}  // namespace

void check(KeychainStatus status)
{
    using enum KeychainStatus;
    switch (status)
    {
        case success:
            return;
        case missingEntitlement:
            throw KeychainError(KeychainError::missingEntitlement);
        case itemNotFound:
            throw KeychainError(KeychainError::itemNotFound);
        case authenticationFailed:
        case userCancelled:
            throw KeychainError(KeychainError::userCancelled);
        default:
            throw KeychainError(KeychainError::couldNotAccessKeychain);
    }
}

NamedStore::NamedStore(const StoreSelection& selection) : store_(make(selection)) {}

NamedStore::Any NamedStore::make(const StoreSelection& selection)
{
    if (!selection.accessControl)
        return makePlain(selection);
    if (selection.singlePrompt)
        return makeProtected<valet::SinglePromptSecureEnclaveValet>(selection);
    return makeProtected<valet::SecureEnclaveValet>(selection);
}

std::string NamedStore::service() const
{
    return std::visit([](const auto& store) { return store->service().name(); }, store_);
}

void NamedStore::set(platform::SecretBytes value, const std::string& key) const
{
    std::visit([&](const auto& store) { store->setObject(std::move(value), key); }, store_);
}

platform::SecretBytes NamedStore::get(const std::string& key, const std::string& prompt) const
{
    if (const auto* plain = std::get_if<std::shared_ptr<valet::Valet>>(&store_))
        return (*plain)->object(key);
    if (const auto* asking = std::get_if<std::shared_ptr<valet::SecureEnclaveValet>>(&store_))
        return (*asking)->object(key, prompt);
    return std::get<std::shared_ptr<valet::SinglePromptSecureEnclaveValet>>(store_)->object(key,
                                                                                            prompt);
}

bool NamedStore::contains(const std::string& key) const
{
    return std::visit([&](const auto& store) { return store->containsObject(key); }, store_);
}

void NamedStore::remove(const std::string& key) const
{
    std::visit([&](const auto& store) { store->removeObject(key); }, store_);
}

void NamedStore::removeAll() const
{
    std::visit([](const auto& store) { store->removeAllObjects(); }, store_);
}

std::vector<std::string> NamedStore::keys() const
{
    const auto keychain = platform::services().keychain;
    const auto base = std::visit(
        [&](const auto& store) { return store->service().baseQuery(*keychain); }, store_);
    std::set<std::string> keys;
    for (const auto& item : attributesOf(*keychain, base))
        keys.insert(item.identity.account);
    keys.erase(std::string(canaryKey));
    return {keys.begin(), keys.end()};
}

std::vector<StoreSummary> visibleStores(platform::Keychain& keychain)
{
    std::map<std::tuple<std::string, std::string, bool>, StoreSummary> stores;
    for (const bool synchronizable : {false, true})
    {
        const platform::KeychainQuery query{
            {KeychainAttribute::kSecClass, platform::KeychainClass::kSecClassGenericPassword},
            {KeychainAttribute::kSecAttrSynchronizable, synchronizable}};
        for (const auto& item : attributesOf(keychain, query))
        {
            const auto& [service, account, group, travels] = item.identity;
            auto& store = stores[{group, service, travels}];
            store.service = service;
            store.accessGroup = group;
            store.synchronizable = travels;
            add(store, item);
        }
    }
    std::vector<StoreSummary> all;
    for (auto& [identity, store] : stores)
        all.push_back(std::move(store));
    return all;
}

}  // namespace commandline
