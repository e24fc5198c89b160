#pragma once

#include "Platform/Security/Keychain/Keychain.hpp"
#include "Valet/KeychainError.hpp"

#include <memory>
#include <optional>
#include <string_view>

namespace valet
{

/// The calls of stores into one keychain, each under the one lock of the process, which is held for
/// that call alone. Whatever the keychain throws, `std::bad_alloc` apart, counts as `notAvailable`.
/// Any thread may call.
class SecItem
{
public:
    /// Null means the keychain of `platform::services()`. None there either stops the process.
    static std::shared_ptr<platform::Keychain> keychainOrSystems(
        std::shared_ptr<platform::Keychain> keychain);

    /// Stops the process if this thread would wait for itself: it runs an authenticator, or it is
    /// inside a call of a keychain. Asked before any lock is taken.
    static void requireOutsideKeychain();

    /// Nothing for success.
    static std::optional<KeychainErrorCase> error(platform::KeychainStatus status) noexcept;
    static void check(platform::KeychainStatus status);
    /// As `check`, but what is not there is as good as gone.
    static void checkDeleted(platform::KeychainStatus status);

    static platform::KeychainQuery itemQuery(const platform::KeychainQuery& base,
                                             std::string_view key);

    explicit SecItem(std::shared_ptr<platform::Keychain> keychain);

    platform::Keychain& keychain() const noexcept { return *keychain_; }

    platform::KeychainStatus add(const platform::KeychainQuery& attributes) const;
    platform::KeychainAnswer copyMatching(const platform::KeychainQuery& query) const;
    platform::KeychainStatus deleteMatching(const platform::KeychainQuery& query) const;

    /// Deletes what matches and adds the item. Of an add that is refused, the deletion remains.
    platform::KeychainStatus replace(const platform::KeychainQuery& old,
                                     const platform::KeychainQuery& attributes) const;

private:
    std::shared_ptr<platform::Keychain> keychain_;
};

}  // namespace valet
