#pragma once

#include "Valet/ValueStore.hpp"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace platform
{
class LocalAuthenticationContext;
}

namespace valet
{

/// A store that asks the user before the first read, and takes that answer for all later ones until
/// it is told to ask again. Writing, removing, listing and looking whether an item exists
/// never ask.
///
///     const auto keys = SinglePromptSecureEnclaveValet::valet(
///         "Keys", SecureEnclaveAccessControl::devicePasscode);
///     const auto signing = keys->string("signing", "Unlock your keys");
///     const auto sealing = keys->string("sealing", "Unlock your keys");  // does not ask
///     keys->requirePromptOnNextAccess();
///
/// Threads, ownership, errors and limits: see `ValueStore`; protection and waiting: see
/// `SecureEnclaveValet`. To end a read that waits for the user, from any thread, invalidate the
/// context that was taken before the read with `localAuthenticationContext()`; afterwards
/// `requirePromptOnNextAccess()` gives the store a context that works.
class SinglePromptSecureEnclaveValet final : public ValueStore
{
public:
    static std::shared_ptr<SinglePromptSecureEnclaveValet> valet(
        const Identifier& identifier, SecureEnclaveAccessControl accessControl,
        Keychain keychain = nullptr);

    /// A store that the programs of a group share; the group is its name where it has no
    /// identifier.
    static std::shared_ptr<SinglePromptSecureEnclaveValet> sharedGroupValet(
        const SharedGroupIdentifier& group, const std::optional<Identifier>& identifier,
        SecureEnclaveAccessControl accessControl, Keychain keychain = nullptr);

    /// The same from plain texts. Null if one of the texts is empty.
    static std::shared_ptr<SinglePromptSecureEnclaveValet> valet(
        std::string_view identifier, SecureEnclaveAccessControl accessControl,
        Keychain keychain = nullptr);
    static std::shared_ptr<SinglePromptSecureEnclaveValet> sharedGroupValet(
        std::string_view prefix, std::string_view groupIdentifier,
        std::optional<std::string_view> identifier, SecureEnclaveAccessControl accessControl,
        Keychain keychain = nullptr);

    template <class... Arguments>
    explicit SinglePromptSecureEnclaveValet(Arguments&&...)
    {
        static_assert(
            isDirectConstructionAllowed<Arguments...>,
            "Use the class methods above to create usable SinglePromptSecureEnclaveValet objects");
    }

    SecureEnclaveAccessControl accessControl() const;

    /// Asks the user unless the context has an answer already. The prompt says why; an empty one
    /// leaves the reason as it was. Throws `itemNotFound` where there is none, without asking, and
    /// `emptyKey`, as writing does.
    platform::SecretBytes object(std::string_view forKey, std::string_view withPrompt) const;
    /// Also `itemNotFound` if the bytes are not UTF-8.
    platform::SecretString string(std::string_view forKey, std::string_view withPrompt) const;

    /// Without the keys' values, so that the user is not asked.
    std::set<std::string> allKeys(std::string_view userPrompt) const;

    /// Forgets the user's answer. Waits for a read that is under way.
    void requirePromptOnNextAccess();

    /// The context of the reads to come; a host may put one of its own in its place, which must not
    /// be null. Both wait for a read that is under way.
    std::shared_ptr<platform::LocalAuthenticationContext> localAuthenticationContext() const;
    void setLocalAuthenticationContext(
        std::shared_ptr<platform::LocalAuthenticationContext> context);

    /// What all queries of this store begin with.
    const platform::KeychainQuery& baseKeychainQuery() const noexcept;

private:
    friend class WeakStorage<SinglePromptSecureEnclaveValet>;
    explicit SinglePromptSecureEnclaveValet(std::unique_ptr<KeychainStore> store);
    std::shared_ptr<platform::LocalAuthenticationContext> contextFor(std::string_view prompt) const;

    /// Read and replaced under the store's lock alone.
    std::shared_ptr<platform::LocalAuthenticationContext> localAuthenticationContext_;
};

}  // namespace valet
