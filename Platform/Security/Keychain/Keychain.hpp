#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"
#include "Platform/Security/Keychain/KeychainQuery.hpp"
#include "Platform/Security/Keychain/KeychainStatus.hpp"

#include <memory>
#include <vector>

namespace platform
{

/// What `Keychain::copyMatching` found. `items` is empty unless `status` is success.
struct KeychainAnswer
{
    KeychainStatus status = KeychainStatus::success;
    std::vector<KeychainItem> items;
};

/// A delete and the add that follows it, as one durable step. The delete answers from what is
/// stored and changes nothing; the add does both at once, so that whoever is killed between the
/// two, or reads from another process, finds the old item or the new one. An add that is refused
/// carries out the delete alone. A scope that ends without an add changes nothing. No lock is held
/// between the calls. Serves one thread, one delete and one add.
class KeychainStagedScope
{
public:
    virtual ~KeychainStagedScope() = default;
    virtual KeychainStatus deleteMatching(const KeychainQuery& query) = 0;
    virtual KeychainStatus add(const KeychainQuery& attributes) = 0;
};

/// A keychain: small secret values of the user's programs, kept between runs. Operations block on
/// disk, on another process or on the user, so keep them off the main thread. Any thread may call.
///
/// An item is the one it is by service, account, access group and synchronizable flag. What each
/// attribute means, present and absent:
///
// clang-format off
/// | attribute                       | in an add             | in a query (copy, delete)                 |
/// |---------------------------------|-----------------------|-------------------------------------------|
/// | `kSecClass`                     | needed                | needed                                    |
/// | `kSecAttrService`, text to 4 KiB| absent: empty         | absent: any                               |
/// | `kSecAttrAccount`, text to 1 KiB| absent: empty         | absent: any                               |
/// | `kSecAttrAccessGroup`, to 1 KiB | absent: the program's | absent: the program's and those it listed, in this order |
/// | `kSecAttrSynchronizable`, flag  | absent: false         | absent: items that do not synchronise     |
/// | `kSecAttrAccessible`            | absent: when unlocked | absent: any                               |
/// | `kSecAttrAccessControl`         | absent: none          | equal accessibility and flag; absent: any |
/// | `kSecValueData`, 1 byte to 4 MiB| needed                | refused                                   |
/// | `kSecMatchLimit`                | refused               | copy, absent: one; delete: all, one is refused |
/// | `kSecReturnData`, flag          | refused               | copy, absent: false; delete: refused      |
/// | `kSecReturnAttributes`, flag    | refused               | copy, absent: false; delete: refused      |
/// | `kSecUseAuthenticationContext`  | refused               | copy, absent: one made for the call; delete: refused |
/// | `kSecUseDataProtectionKeychain` | no effect             | no effect                                 |
// clang-format on
///
/// `kSecAttrAccessible` and `kSecAttrAccessControl` exclude each other.
///
/// What is refused here, a text that is not UTF-8 or is too long, and a value of another type are
/// `parameter`. A group that is neither the program's own, nor listed, nor open to all (the ones
/// with the prefix "group.", unless the host closes them) is `missingEntitlement`. An add of an
/// item that exists is `duplicateItem`, also where the two differ in accessibility alone.
/// `itemNotFound` is said only by a keychain that is sure; one that could not look everywhere is
/// `notAvailable`.
///
/// Items with an access control are released when the user has agreed; asking whether one exists,
/// and copying without `kSecReturnData`, never asks the user, and answers with the attributes. With
/// a context that may not interact, the data of such an item are `interactionNotAllowed`. With
/// `kSecMatchLimitAll`, the first item that is refused ends the call with its status.
///
/// The synchronizable flag says that an item may travel. Nothing here lets it leave the machine.
class Keychain
{
public:
    virtual ~Keychain() = default;

    virtual KeychainStatus add(const KeychainQuery& attributes) = 0;
    virtual KeychainAnswer copyMatching(const KeychainQuery& query) = 0;
    virtual KeychainStatus deleteMatching(const KeychainQuery& query) = 0;
    virtual std::unique_ptr<KeychainStagedScope> stage() = 0;

    /// What an item demands of the user; nothing where the flag is not one of the listed ones.
    /// Whether this machine can protect such an item is asked when it is added.
    virtual std::shared_ptr<const AccessControl> makeAccessControl(KeychainAccessible accessible,
                                                                   AccessControlFlag flag);
};

}  // namespace platform
