#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "Valet/Identifier.hpp"
#include "Valet/KeychainError.hpp"
#include "Valet/Service.hpp"
#include "Valet/SharedGroupIdentifier.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace platform
{
class Keychain;
}

namespace valet
{

class KeychainStore;
template <class Store>
class WeakStorage;

/// What all stores can do, whatever the user is asked: write, remove, and look whether an item
/// exists. Hosts use `Valet`, `SecureEnclaveValet` or `SinglePromptSecureEnclaveValet`.
///
/// Threads: any, also at the same time. Operations wait for the disk or for another program, and
/// all stores of a process take turns, so keep them off the main thread. They must not be called
/// from an authenticator or a diagnostic sink, which stops the process with a message.
///
/// Ownership: a factory returns the live store of the same class, service name and keychain if
/// somebody holds one, as it is, and makes one otherwise. With an explicitly set name, and for
/// groups that differ in their prefix alone, that may be a store of another accessibility, kind or
/// group: give each its own name. A store holds its keychain; without one, the factory takes
/// `platform::services().keychain`, which the host sets before its first store.
///
/// Errors: operations throw `KeychainError` and, when memory runs out, `std::bad_alloc`; no other.
/// The cause behind `couldNotAccessKeychain` goes to `platform::Services::diagnostics`.
///
/// Limits: keys are UTF-8 of 1 to 1,024 bytes, values are any 1 byte to 4 MiB. Longer or ill-formed
/// keys are `couldNotAccessKeychain`, and so is a longer value, which leaves the key absent.
class ValueStore
{
public:
    using Keychain = std::shared_ptr<platform::Keychain>;

    ValueStore(const ValueStore&) = delete;
    ValueStore& operator=(const ValueStore&) = delete;

    /// That of the group where the store was made without one.
    const Identifier& identifier() const noexcept;
    const Service& service() const noexcept;

    /// Whether items can be written, read back and, where the user is to be asked before they are
    /// released, protected as the store demands. False tells the host to offer another way, or to
    /// ask for a passcode to be set, before the user is told that something was saved.
    ///
    /// Writes an item of its own, that holds no secret and is in no list of keys, where it finds
    /// none. In a store that asks the user that item is unprotected; whether the machine protects
    /// is found by offering a protected one under the same key, which is taken, so that nothing is
    /// written. Never throws, never asks the user.
    bool canAccessKeychain() noexcept;

    /// Puts the value in the place of the one that is there. Throws `emptyKey` before `emptyValue`.
    /// When the new value is refused after the old one has gone, the key is absent.
    void setObject(platform::SecretBytes value, std::string_view forKey);
    void setObject(std::span<const std::byte> value, std::string_view forKey);

    /// A text that is not UTF-8 is `couldNotAccessKeychain`, and changes nothing.
    void setString(const platform::SecretString& value, std::string_view forKey);
    void setString(std::string_view value, std::string_view forKey);

    /// False where there is none. An empty key is `couldNotAccessKeychain`. Never asks the user.
    bool containsObject(std::string_view forKey) const;

    /// Nothing happens where there is none. Throws `emptyKey`.
    void removeObject(std::string_view forKey);
    void removeAllObjects();

    /// Equal when the service names are, whatever the keychain.
    bool operator==(const ValueStore& other) const noexcept;
    friend std::size_t hash_value(const ValueStore& store) noexcept { return store.hash(); }

protected:
    /// For constructors that are refused when they are used; it has no definition.
    ValueStore();
    explicit ValueStore(std::unique_ptr<KeychainStore> store);
    ~ValueStore();

    const KeychainStore& store() const noexcept { return *store_; }

private:
    std::size_t hash() const noexcept;

    const std::unique_ptr<KeychainStore> store_;
};

/// For an assertion that fails when the template around it is used, and not before.
template <class...>
inline constexpr bool isDirectConstructionAllowed = false;

}  // namespace valet
