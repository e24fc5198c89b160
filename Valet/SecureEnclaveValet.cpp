#include "Valet/SecureEnclaveValet.hpp"

#include "Valet/GroupNames.hpp"
#include "Valet/KeychainStore.hpp"
#include "Valet/WeakStorage.hpp"

namespace valet
{
namespace
{

std::shared_ptr<SecureEnclaveValet> live(Service service, SecureEnclaveValet::Keychain keychain)
{
    return WeakStorage<SecureEnclaveValet>::shared().store(std::move(service), std::move(keychain));
}

ItemOperations::Context contextFor(std::string_view prompt)
{
    if (prompt.empty())
        return nullptr;
    auto context = std::make_shared<platform::LocalAuthenticationContext>();
    context->setLocalizedReason(std::string(prompt));
    return context;
}

}  // namespace

std::shared_ptr<SecureEnclaveValet> SecureEnclaveValet::valet(
    const Identifier& identifier, SecureEnclaveAccessControl accessControl, Keychain keychain)
{
    return live(Service::standard(identifier, Configuration::secureEnclave(accessControl)),
                std::move(keychain));
}

std::shared_ptr<SecureEnclaveValet> SecureEnclaveValet::sharedGroupValet(
    const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
    SecureEnclaveAccessControl accessControl, Keychain keychain)
{
    return live(
        Service::sharedGroup(group, identifier, Configuration::secureEnclave(accessControl)),
        std::move(keychain));
}

std::shared_ptr<SecureEnclaveValet> SecureEnclaveValet::valet(
    std::string_view identifier, SecureEnclaveAccessControl accessControl, Keychain keychain)
{
    const auto named = Identifier::make(identifier);
    return named ? valet(*named, accessControl, std::move(keychain)) : nullptr;
}

std::shared_ptr<SecureEnclaveValet> SecureEnclaveValet::sharedGroupValet(
    std::string_view prefix, std::string_view groupIdentifier,
    std::optional<std::string_view> identifier, SecureEnclaveAccessControl accessControl,
    Keychain keychain)
{
    const auto names = GroupNames::make(prefix, groupIdentifier, identifier);
    return names ? sharedGroupValet(names->group, names->identifier, accessControl,
                                    std::move(keychain))
                 : nullptr;
}

SecureEnclaveValet::SecureEnclaveValet(std::unique_ptr<KeychainStore> store)
    : ValueStore(std::move(store))
{}

SecureEnclaveAccessControl SecureEnclaveValet::accessControl() const
{
    return service().configuration().accessControl().value();
}

platform::SecretBytes SecureEnclaveValet::object(std::string_view forKey,
                                                 std::string_view withPrompt) const
{
    return store().enter()->object(forKey, contextFor(withPrompt));
}

platform::SecretString SecureEnclaveValet::string(std::string_view forKey,
                                                  std::string_view withPrompt) const
{
    return store().enter()->string(forKey, contextFor(withPrompt));
}

}  // namespace valet
