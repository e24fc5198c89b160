#pragma once

#include "Valet/Configuration.hpp"
#include "Valet/SharedGroupIdentifier.hpp"

#include <optional>
#include <string>

namespace platform
{
class Keychain;
class KeychainQuery;
}  // namespace platform

namespace valet
{

/// The namespace of a store in the keychain: its service name, and the attributes that all of its
/// items and queries share. A value.
class Service
{
public:
    static Service standard(Identifier identifier, Configuration configuration);
    static Service sharedGroup(SharedGroupIdentifier group, std::optional<Identifier> identifier,
                               Configuration configuration);

    /// The identifier is the service name, as it stands.
    static Service standardOverride(Identifier identifier, Configuration configuration);
    static Service sharedGroupOverride(SharedGroupIdentifier group,
                                       std::optional<Identifier> identifier,
                                       Configuration configuration);

    /// The identifier; that of the group where there is none.
    const Identifier& identifier() const noexcept;
    const std::optional<SharedGroupIdentifier>& sharedGroupIdentifier() const noexcept
    {
        return group_;
    }
    const Configuration& configuration() const noexcept { return configuration_; }

    /// For example "VAL_VALValet_initWithIdentifier:accessibility:_Tokens_AccessibleWhenUnlocked".
    /// It never changes for a given store: items are found by it.
    std::string name() const;

    /// Class, service, data protection, access group, synchronizable flag, accessibility or access
    /// control, in this order, each where the store has it. The access control is left out if the
    /// keychain makes none.
    platform::KeychainQuery baseQuery(platform::Keychain& keychain) const;

    bool operator==(const Service&) const = default;

private:
    enum class Naming
    {
        derived,
        explicitlySet,
    };

    Service(std::optional<SharedGroupIdentifier> group, std::optional<Identifier> identifier,
            Configuration configuration, Naming naming);

    std::optional<SharedGroupIdentifier> group_;
    std::optional<Identifier> identifier_;
    Configuration configuration_;
    Naming naming_;
};

}  // namespace valet
