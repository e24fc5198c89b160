#pragma once

#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Valet/SecItem.hpp"
#include "Valet/Service.hpp"

#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace valet
{

/// The account and the text of the item that shows whether a keychain can be written and read.
inline constexpr std::string_view canaryKey = "VAL_KeychainCanaryUsername";
inline constexpr std::string_view canaryValue = "VAL_ProbeItemSecretValue77";

/// What all stores do with the items of one service. Takes no lock of its own: the store's is held.
class ItemOperations
{
public:
    using Context = std::shared_ptr<platform::LocalAuthenticationContext>;

    ItemOperations(const Service& service, std::shared_ptr<platform::Keychain> keychain);

    const platform::KeychainQuery& baseQuery() const noexcept { return baseQuery_; }

    bool canAccessKeychain() const noexcept;

    void setObject(platform::SecretBytes value, std::string_view key) const;
    void setString(std::string_view value, std::string_view key) const;

    /// Without a context the query has none, and the keychain makes one for the call.
    platform::SecretBytes object(std::string_view key, const Context& context = nullptr) const;
    platform::SecretString string(std::string_view key, const Context& context = nullptr) const;

    bool containsObject(std::string_view key) const;
    std::set<std::string> allKeys(const Context& context = nullptr) const;

    void removeObject(std::string_view key) const;
    void removeAllObjects() const;

private:
    bool canaryHolds(const platform::KeychainQuery& canary) const;
    bool machineProtectsItems() const;
    platform::KeychainQuery unprotectedBaseQuery() const;

    SecItem items_;
    /// Whether the user is asked before items are released.
    bool protected_;
    platform::KeychainQuery baseQuery_;
};

}  // namespace valet
