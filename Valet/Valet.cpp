#include "Valet/Valet.hpp"

#include "Valet/GroupNames.hpp"
#include "Valet/KeychainStore.hpp"
#include "Valet/WeakStorage.hpp"

namespace valet
{
namespace
{

std::shared_ptr<Valet> live(Service service, Valet::Keychain keychain)
{
    return WeakStorage<Valet>::shared().store(std::move(service), std::move(keychain));
}

}  // namespace

std::shared_ptr<Valet> Valet::valet(const Identifier& identifier, Accessibility accessibility,
                                    Keychain keychain)
{
    return live(Service::standard(identifier, Configuration::valet(accessibility)),
                std::move(keychain));
}

std::shared_ptr<Valet> Valet::valetWithExplicitlySet(const Identifier& identifier,
                                                     Accessibility accessibility, Keychain keychain)
{
    return live(Service::standardOverride(identifier, Configuration::valet(accessibility)),
                std::move(keychain));
}

std::shared_ptr<Valet> Valet::iCloudValet(const Identifier& identifier,
                                          CloudAccessibility accessibility, Keychain keychain)
{
    return live(Service::standard(identifier, Configuration::iCloud(accessibility)),
                std::move(keychain));
}

std::shared_ptr<Valet> Valet::iCloudValetWithExplicitlySet(const Identifier& identifier,
                                                           CloudAccessibility accessibility,
                                                           Keychain keychain)
{
    return live(Service::standardOverride(identifier, Configuration::iCloud(accessibility)),
                std::move(keychain));
}

std::shared_ptr<Valet> Valet::sharedGroupValet(const SharedGroupIdentifier& group,
                                               const std::optional<Identifier>& identifier,
                                               Accessibility accessibility, Keychain keychain)
{
    return live(Service::sharedGroup(group, identifier, Configuration::valet(accessibility)),
                std::move(keychain));
}

std::shared_ptr<Valet> Valet::sharedGroupValetWithExplicitlySet(
    const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
    Accessibility accessibility, Keychain keychain)
{
    return live(
        Service::sharedGroupOverride(group, identifier, Configuration::valet(accessibility)),
        std::move(keychain));
}

std::shared_ptr<Valet> Valet::iCloudSharedGroupValet(const SharedGroupIdentifier& group,
                                                     const std::optional<Identifier>& identifier,
                                                     CloudAccessibility accessibility,
                                                     Keychain keychain)
{
    return live(Service::sharedGroup(group, identifier, Configuration::iCloud(accessibility)),
                std::move(keychain));
}

std::shared_ptr<Valet> Valet::iCloudSharedGroupValetWithExplicitlySet(
    const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
    CloudAccessibility accessibility, Keychain keychain)
{
    return live(
        Service::sharedGroupOverride(group, identifier, Configuration::iCloud(accessibility)),
        std::move(keychain));
}

std::shared_ptr<Valet> Valet::valet(std::string_view identifier, Accessibility accessibility,
                                    Keychain keychain)
{
    const auto named = Identifier::make(identifier);
    return named ? valet(*named, accessibility, std::move(keychain)) : nullptr;
}

std::shared_ptr<Valet> Valet::valetWithExplicitlySet(std::string_view identifier,
                                                     Accessibility accessibility, Keychain keychain)
{
    const auto named = Identifier::make(identifier);
    return named ? valetWithExplicitlySet(*named, accessibility, std::move(keychain)) : nullptr;
}

std::shared_ptr<Valet> Valet::iCloudValet(std::string_view identifier,
                                          CloudAccessibility accessibility, Keychain keychain)
{
    const auto named = Identifier::make(identifier);
    return named ? iCloudValet(*named, accessibility, std::move(keychain)) : nullptr;
}

std::shared_ptr<Valet> Valet::iCloudValetWithExplicitlySet(std::string_view identifier,
                                                           CloudAccessibility accessibility,
                                                           Keychain keychain)
{
    const auto named = Identifier::make(identifier);
    return named ? iCloudValetWithExplicitlySet(*named, accessibility, std::move(keychain))
                 : nullptr;
}

std::shared_ptr<Valet> Valet::sharedGroupValet(std::string_view prefix,
                                               std::string_view groupIdentifier,
                                               std::optional<std::string_view> identifier,
                                               Accessibility accessibility, Keychain keychain)
{
    const auto names = GroupNames::make(prefix, groupIdentifier, identifier);
    return names ? sharedGroupValet(names->group, names->identifier, accessibility,
                                    std::move(keychain))
                 : nullptr;
}

std::shared_ptr<Valet> Valet::sharedGroupValetWithExplicitlySet(
    std::string_view prefix, std::string_view groupIdentifier,
    std::optional<std::string_view> identifier, Accessibility accessibility, Keychain keychain)
{
    const auto names = GroupNames::make(prefix, groupIdentifier, identifier);
    return names ? sharedGroupValetWithExplicitlySet(names->group, names->identifier, accessibility,
                                                     std::move(keychain))
                 : nullptr;
}

std::shared_ptr<Valet> Valet::iCloudSharedGroupValet(std::string_view prefix,
                                                     std::string_view groupIdentifier,
                                                     std::optional<std::string_view> identifier,
                                                     CloudAccessibility accessibility,
                                                     Keychain keychain)
{
    const auto names = GroupNames::make(prefix, groupIdentifier, identifier);
    return names ? iCloudSharedGroupValet(names->group, names->identifier, accessibility,
                                          std::move(keychain))
                 : nullptr;
}

std::shared_ptr<Valet> Valet::iCloudSharedGroupValetWithExplicitlySet(
    std::string_view prefix, std::string_view groupIdentifier,
    std::optional<std::string_view> identifier, CloudAccessibility accessibility, Keychain keychain)
{
    const auto names = GroupNames::make(prefix, groupIdentifier, identifier);
    return names ? iCloudSharedGroupValetWithExplicitlySet(names->group, names->identifier,
                                                           accessibility, std::move(keychain))
                 : nullptr;
}

Valet::Valet(std::unique_ptr<KeychainStore> store) : ValueStore(std::move(store)) {}

Accessibility Valet::accessibility() const
{
    return configuration().accessibility();
}

const Configuration& Valet::configuration() const noexcept
{
    return service().configuration();
}

platform::SecretBytes Valet::object(std::string_view forKey) const
{
    return store().enter()->object(forKey);
}

platform::SecretString Valet::string(std::string_view forKey) const
{
    return store().enter()->string(forKey);
}

std::set<std::string> Valet::allKeys() const
{
    return store().enter()->allKeys();
}

}  // namespace valet
