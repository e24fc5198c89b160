#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace platform
{

class LocalAuthenticationContext;

enum class KeychainAttribute
{
    kSecClass,
    kSecAttrService,
    kSecUseDataProtectionKeychain,
    kSecAttrAccessGroup,
    kSecAttrAccessible,
    kSecAttrSynchronizable,
    kSecAttrAccessControl,
    kSecAttrAccount,
    kSecValueData,
    kSecMatchLimit,
    kSecReturnData,
    kSecReturnAttributes,
    kSecUseAuthenticationContext,
};

enum class KeychainClass
{
    kSecClassGenericPassword,
};

enum class KeychainMatchLimit
{
    kSecMatchLimitOne,
    kSecMatchLimitAll,
};

/// The value of an attribute. Which attribute takes which type stands in `Keychain`'s table.
using KeychainValue =
    std::variant<bool, std::string, SecretBytes, KeychainClass, KeychainAccessible,
                 KeychainMatchLimit, std::shared_ptr<const AccessControl>,
                 std::shared_ptr<LocalAuthenticationContext>>;

/// The attributes of an operation on a keychain, in the order in which they were set. An attribute
/// stands in it once: setting it again replaces its value in its place.
class KeychainQuery
{
public:
    using Entry = std::pair<KeychainAttribute, KeychainValue>;

    KeychainQuery() = default;
    KeychainQuery(std::initializer_list<Entry> entries);

    KeychainQuery& set(KeychainAttribute attribute, KeychainValue value);

    /// The same query with one attribute more, for a base query that serves many operations.
    KeychainQuery with(KeychainAttribute attribute, KeychainValue value) const;

    const KeychainValue* find(KeychainAttribute attribute) const;
    const std::vector<Entry>& entries() const noexcept { return entries_; }

private:
    std::vector<Entry> entries_;
};

}  // namespace platform
