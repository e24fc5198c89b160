#pragma once

#include "Valet/ValueStore.hpp"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace valet
{

/// Keeps bytes and texts under string keys in the keychain, each store in a namespace of its own.
///
///     const auto tokens = Valet::valet("Tokens", Accessibility::afterFirstUnlock);
///     tokens->setString(secret, "session");
///     const platform::SecretString session = tokens->string("session");
///
/// Purpose: secrets that outlive the process. A write is durable when it returns. Programs of one
/// user find each other's stores only through an access group (`SharedGroupIdentifier`).
///
/// Threads, ownership, errors and limits: see `ValueStore`.
class Valet final : public ValueStore
{
public:
    static std::shared_ptr<Valet> valet(const Identifier& identifier, Accessibility accessibility,
                                        Keychain keychain = nullptr);

    /// The identifier is the service name as it stands, to reach items of another making. Two such
    /// stores that differ in accessibility alone cannot hold the same key.
    static std::shared_ptr<Valet> valetWithExplicitlySet(const Identifier& identifier,
                                                         Accessibility accessibility,
                                                         Keychain keychain = nullptr);

    /// Items are marked as free to travel between the user's machines. Nothing here lets them.
    static std::shared_ptr<Valet> iCloudValet(const Identifier& identifier,
                                              CloudAccessibility accessibility,
                                              Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudValetWithExplicitlySet(const Identifier& identifier,
                                                               CloudAccessibility accessibility,
                                                               Keychain keychain = nullptr);

    /// A store that the programs of a group share; the group is its name where it has no
    /// identifier.
    static std::shared_ptr<Valet> sharedGroupValet(const SharedGroupIdentifier& group,
                                                   const std::optional<Identifier>& identifier,
                                                   Accessibility accessibility,
                                                   Keychain keychain = nullptr);
    static std::shared_ptr<Valet> sharedGroupValetWithExplicitlySet(
        const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
        Accessibility accessibility, Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudSharedGroupValet(
        const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
        CloudAccessibility accessibility, Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudSharedGroupValetWithExplicitlySet(
        const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
        CloudAccessibility accessibility, Keychain keychain = nullptr);

    /// The same from plain texts. Null if one of the texts is empty.
    static std::shared_ptr<Valet> valet(std::string_view identifier, Accessibility accessibility,
                                        Keychain keychain = nullptr);
    static std::shared_ptr<Valet> valetWithExplicitlySet(std::string_view identifier,
                                                         Accessibility accessibility,
                                                         Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudValet(std::string_view identifier,
                                              CloudAccessibility accessibility,
                                              Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudValetWithExplicitlySet(std::string_view identifier,
                                                               CloudAccessibility accessibility,
                                                               Keychain keychain = nullptr);
    static std::shared_ptr<Valet> sharedGroupValet(std::string_view prefix,
                                                   std::string_view groupIdentifier,
                                                   std::optional<std::string_view> identifier,
                                                   Accessibility accessibility,
                                                   Keychain keychain = nullptr);
    static std::shared_ptr<Valet> sharedGroupValetWithExplicitlySet(
        std::string_view prefix, std::string_view groupIdentifier,
        std::optional<std::string_view> identifier, Accessibility accessibility,
        Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudSharedGroupValet(std::string_view prefix,
                                                         std::string_view groupIdentifier,
                                                         std::optional<std::string_view> identifier,
                                                         CloudAccessibility accessibility,
                                                         Keychain keychain = nullptr);
    static std::shared_ptr<Valet> iCloudSharedGroupValetWithExplicitlySet(
        std::string_view prefix, std::string_view groupIdentifier,
        std::optional<std::string_view> identifier, CloudAccessibility accessibility,
        Keychain keychain = nullptr);

    template <class... Arguments>
    explicit Valet(Arguments&&...)
    {
        static_assert(isDirectConstructionAllowed<Arguments...>,
                      "Use the class methods above to create usable Valet objects");
    }

    Accessibility accessibility() const;
    const Configuration& configuration() const noexcept;

    /// Throws `itemNotFound` where there is none, and `emptyKey`, as writing does.
    platform::SecretBytes object(std::string_view forKey) const;
    /// Also `itemNotFound` if the bytes are not UTF-8.
    platform::SecretString string(std::string_view forKey) const;

    std::set<std::string> allKeys() const;

private:
    friend class WeakStorage<Valet>;
    explicit Valet(std::unique_ptr<KeychainStore> store);
};

}  // namespace valet
