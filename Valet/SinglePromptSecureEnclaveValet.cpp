#include "Valet/SinglePromptSecureEnclaveValet.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Valet/GroupNames.hpp"
#include "Valet/KeychainStore.hpp"
#include "Valet/WeakStorage.hpp"

namespace valet
{
namespace
{

std::shared_ptr<SinglePromptSecureEnclaveValet> live(
    Service service, SinglePromptSecureEnclaveValet::Keychain keychain)
{
    return WeakStorage<SinglePromptSecureEnclaveValet>::shared().store(std::move(service),
                                                                       std::move(keychain));
}

}  // namespace

std::shared_ptr<SinglePromptSecureEnclaveValet> SinglePromptSecureEnclaveValet::valet(
    const Identifier& identifier, SecureEnclaveAccessControl accessControl, Keychain keychain)
{
    return live(
        Service::standard(identifier, Configuration::singlePromptSecureEnclave(accessControl)),
        std::move(keychain));
}

std::shared_ptr<SinglePromptSecureEnclaveValet> SinglePromptSecureEnclaveValet::sharedGroupValet(
    const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
    SecureEnclaveAccessControl accessControl, Keychain keychain)
{
    return live(Service::sharedGroup(group, identifier,
                                     Configuration::singlePromptSecureEnclave(accessControl)),
                std::move(keychain));
}

std::shared_ptr<SinglePromptSecureEnclaveValet> SinglePromptSecureEnclaveValet::valet(
    std::string_view identifier, SecureEnclaveAccessControl accessControl, Keychain keychain)
{
    const auto named = Identifier::make(identifier);
    return named ? valet(*named, accessControl, std::move(keychain)) : nullptr;
}

std::shared_ptr<SinglePromptSecureEnclaveValet> SinglePromptSecureEnclaveValet::sharedGroupValet(
    std::string_view prefix, std::string_view groupIdentifier,
    std::optional<std::string_view> identifier, SecureEnclaveAccessControl accessControl,
    Keychain keychain)
{
    const auto names = GroupNames::make(prefix, groupIdentifier, identifier);
    return names ? sharedGroupValet(names->group, names->identifier, accessControl,
                                    std::move(keychain))
                 : nullptr;
}

SinglePromptSecureEnclaveValet::SinglePromptSecureEnclaveValet(std::unique_ptr<KeychainStore> store)
    : ValueStore(std::move(store)),
      localAuthenticationContext_(std::make_shared<platform::LocalAuthenticationContext>())
{}

SecureEnclaveAccessControl SinglePromptSecureEnclaveValet::accessControl() const
{
    return service().configuration().accessControl().value();
}

platform::SecretBytes SinglePromptSecureEnclaveValet::object(std::string_view forKey,
                                                             std::string_view withPrompt) const
{
    const auto entry = store().enter();
    return entry->object(forKey, contextFor(withPrompt));
}

platform::SecretString SinglePromptSecureEnclaveValet::string(std::string_view forKey,
                                                              std::string_view withPrompt) const
{
    const auto entry = store().enter();
    return entry->string(forKey, contextFor(withPrompt));
}

std::set<std::string> SinglePromptSecureEnclaveValet::allKeys(std::string_view userPrompt) const
{
    const auto entry = store().enter();
    return entry->allKeys(contextFor(userPrompt));
}

void SinglePromptSecureEnclaveValet::requirePromptOnNextAccess()
{
    const auto entry = store().enter();
    localAuthenticationContext_->invalidate();
    localAuthenticationContext_ = std::make_shared<platform::LocalAuthenticationContext>();
}

std::shared_ptr<platform::LocalAuthenticationContext>
SinglePromptSecureEnclaveValet::localAuthenticationContext() const
{
    const auto entry = store().enter();
    return localAuthenticationContext_;
}

void SinglePromptSecureEnclaveValet::setLocalAuthenticationContext(
    std::shared_ptr<platform::LocalAuthenticationContext> context)
{
    if (!context)
        platform::fatal("A single-prompt store was given a null authentication context");
    const auto entry = store().enter();
    localAuthenticationContext_ = std::move(context);
}

const platform::KeychainQuery& SinglePromptSecureEnclaveValet::baseKeychainQuery() const noexcept
{
    return store().baseQuery();
}

ItemOperations::Context SinglePromptSecureEnclaveValet::contextFor(std::string_view prompt) const
{
    if (!prompt.empty())
        localAuthenticationContext_->setLocalizedReason(std::string(prompt));
    return localAuthenticationContext_;
}

}  // namespace valet
