#include "Valet/Service.hpp"

#include "Platform/Security/Keychain/Keychain.hpp"

#include <utility>

namespace valet
{

using platform::KeychainQuery;
using enum platform::KeychainAttribute;

Service::Service(std::optional<SharedGroupIdentifier> group, std::optional<Identifier> identifier,
                 Configuration configuration, Naming naming)
    : group_(std::move(group)),
      identifier_(std::move(identifier)),
      configuration_(configuration),
      naming_(naming)
{}

Service Service::standard(Identifier identifier, Configuration configuration)
{
    return {std::nullopt, std::move(identifier), configuration, Naming::derived};
}

Service Service::sharedGroup(SharedGroupIdentifier group, std::optional<Identifier> identifier,
                             Configuration configuration)
{
    return {std::move(group), std::move(identifier), configuration, Naming::derived};
}

Service Service::standardOverride(Identifier identifier, Configuration configuration)
{
    return {std::nullopt, std::move(identifier), configuration, Naming::explicitlySet};
}

Service Service::sharedGroupOverride(SharedGroupIdentifier group,
                                     std::optional<Identifier> identifier,
                                     Configuration configuration)
{
    return {std::move(group), std::move(identifier), configuration, Naming::explicitlySet};
}

const Identifier& Service::identifier() const noexcept
{
    return identifier_ ? *identifier_ : group_->asIdentifier();
}

std::string Service::name() const
{
    if (naming_ == Naming::explicitlySet)
        return identifier().backingString();

    std::string name = "VAL_";
    name += configuration_.description();
    name += group_ ? "_initWithSharedAccessGroupIdentifier:accessibility:_"
                   : "_initWithIdentifier:accessibility:_";
    if (group_)
        name += group_->groupIdentifier();
    if (group_ && identifier_)
        name += "_";
    if (identifier_)
        name += identifier_->backingString();
    name += "_";
    name += configuration_.accessibilityDescription();
    if (const auto accessControl = configuration_.accessControl())
        name += serviceNameSuffix(*accessControl);
    return name;
}

KeychainQuery Service::baseQuery(platform::Keychain& keychain) const
{
    KeychainQuery query{{kSecClass, platform::KeychainClass::kSecClassGenericPassword},
                        {kSecAttrService, name()},
                        {kSecUseDataProtectionKeychain, true}};
    if (group_)
        query.set(kSecAttrAccessGroup, group_->description());
    if (configuration_.synchronizable())
        query.set(kSecAttrSynchronizable, true);

    const auto accessible = keychainAccessibility(configuration_.accessibility());
    const auto accessControl = configuration_.accessControl();
    if (!accessControl)
        query.set(kSecAttrAccessible, accessible);
    else if (auto made = keychain.makeAccessControl(accessible, accessControlFlag(*accessControl)))
        query.set(kSecAttrAccessControl, std::move(made));
    return query;
}

}  // namespace valet
