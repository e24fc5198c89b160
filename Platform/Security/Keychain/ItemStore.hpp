#pragma once

#include "Platform/Security/Keychain/Keychain.hpp"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform
{

/// The access group of the framework's own records, which no program may name.
inline constexpr std::string_view internalAccessGroup = "net.ostra.Tessera.internal";

/// Which items an operation means. Every condition that is present must hold.
struct ItemPattern
{
    std::optional<std::string> service;
    std::optional<std::string> account;
    /// One of these. The order is that of the results.
    std::vector<std::string> accessGroups;
    bool synchronizable = false;
    std::optional<KeychainAccessible> accessible;
    std::optional<AccessControlFlag> accessControl;

    bool matches(const KeychainItem& item) const;
};

enum class ItemContent
{
    attributes,
    attributesAndData,
};

/// Where a keychain keeps its items: what an implementation for a machine's service must offer. All
/// rules about queries, groups and the user's consent stand above it, in `StoreKeychain`.
///
/// Texts are valid UTF-8 within `keychainLimits`, and may hold NUL; data are any bytes, a little
/// longer than the value limit where the user's consent is sealed into them. Every change is one
/// durable step: after `success` it survives a power cut, before it nothing has changed, for this
/// process and for every other. Any thread of any process may call at any time. Every call ends
/// within a few seconds, whatever another process does. A status other than success,
/// `duplicateItem` and `itemNotFound` is explained to the diagnostic sink before it is returned.
class ItemStore
{
public:
    virtual ~ItemStore() = default;

    virtual KeychainStatus add(const KeychainItem& item) = 0;

    /// Deletes what matches `old`, if anything does, and adds the item, in one step. If an item of
    /// the same identity is left, the deletion stands and the answer is `duplicateItem`.
    virtual KeychainStatus replace(const ItemPattern& old, const KeychainItem& item) = 0;

    /// The matching items, at most `limit` of them, ordered by access group as the pattern lists
    /// them, then by service and account. `itemNotFound` where there is none.
    virtual KeychainAnswer copyMatching(const ItemPattern& pattern, ItemContent content,
                                        std::size_t limit) = 0;

    virtual KeychainStatus deleteMatching(const ItemPattern& pattern) = 0;

    /// Changes one item's data with no other process in between: `change` gets the data that are
    /// stored (null where there is no such item) and returns the new ones, or nothing to leave
    /// things as they are. It must be quick and must not call the store. Empty data delete the
    /// item.
    virtual KeychainStatus update(
        const KeychainIdentity& identity,
        const std::function<std::optional<SecretBytes>(const SecretBytes* stored)>& change) = 0;
};

}  // namespace platform
