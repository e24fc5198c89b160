#pragma once

#include "Valet/ValueStore.hpp"

#include <memory>
#include <optional>
#include <string_view>

namespace valet
{

/// A store that asks the user before every read. Writing, removing and looking whether an item
/// exists never ask.
///
///     const auto passcode = SecureEnclaveAccessControl::devicePasscode;
///     const auto keys = SecureEnclaveValet::valet("Keys", passcode);
///     if (keys->canAccessKeychain())
///         keys->setString(secret, "signing");
///     const auto signing = keys->string("signing", "Sign the letter");
///
/// Purpose: secrets that need the user's consent each time. How strong that is, the access control
/// decides: `devicePasscode` seals the item under the passcode, the others rely on the host's
/// authenticator (`platform::Services::authenticator`).
///
/// Threads, ownership, errors and limits: see `ValueStore`. A read blocks until the user has
/// answered, and all other stores of the process wait with it; a user who dismisses the request
/// ends it with `userCancelled`. An item that this machine cannot protect, because no passcode is
/// set for example, is refused with `couldNotAccessKeychain`, not stored in the open. Only a
/// keychain of the host's own that makes no access controls leaves items unprotected;
/// `canAccessKeychain()` is then false.
class SecureEnclaveValet final : public ValueStore
{
public:
    static std::shared_ptr<SecureEnclaveValet> valet(const Identifier& identifier,
                                                     SecureEnclaveAccessControl accessControl,
                                                     Keychain keychain = nullptr);

    /// A store that the programs of a group share; the group is its name where it has no
    /// identifier.
    static std::shared_ptr<SecureEnclaveValet> sharedGroupValet(
        const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
        SecureEnclaveAccessControl accessControl, Keychain keychain = nullptr);

    /// The same from plain texts. Null if one of the texts is empty.
    static std::shared_ptr<SecureEnclaveValet> valet(std::string_view identifier,
                                                     SecureEnclaveAccessControl accessControl,
                                                     Keychain keychain = nullptr);
    static std::shared_ptr<SecureEnclaveValet> sharedGroupValet(
        std::string_view prefix, std::string_view groupIdentifier,
        std::optional<std::string_view> identifier, SecureEnclaveAccessControl accessControl,
        Keychain keychain = nullptr);

    template <class... Arguments>
    explicit SecureEnclaveValet(Arguments&&...)
    {
        static_assert(isDirectConstructionAllowed<Arguments...>,
                      "Use the class methods above to create usable SecureEnclaveValet objects");
    }

    SecureEnclaveAccessControl accessControl() const;

    /// Asks the user; the prompt says why, and may be empty. Throws `itemNotFound` where there is
    /// none, without asking, and `emptyKey`, as writing does.
    platform::SecretBytes object(std::string_view forKey, std::string_view withPrompt) const;
    /// Also `itemNotFound` if the bytes are not UTF-8.
    platform::SecretString string(std::string_view forKey, std::string_view withPrompt) const;

private:
    friend class WeakStorage<SecureEnclaveValet>;
    explicit SecureEnclaveValet(std::unique_ptr<KeychainStore> store);
};

}  // namespace valet
