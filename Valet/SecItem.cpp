#include "Valet/SecItem.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Security/Authentication/ItemProtection.hpp"
#include "Platform/Services/Services.hpp"

#include <new>
#include <optional>
#include <string>
#include <utility>

namespace valet
{
namespace
{

using platform::KeychainStatus;

// Never torn down: a store in a static object of the host may still be used while the process ends.
std::mutex& processWideLock()
{
    static auto& lock = *new std::mutex;
    return lock;
}

thread_local bool insideCall = false;

/// Holds the process-wide lock for one call.
class CallLock
{
public:
    CallLock() : lock_(processWideLock()) { insideCall = true; }
    ~CallLock() { insideCall = false; }
    CallLock(const CallLock&) = delete;
    CallLock& operator=(const CallLock&) = delete;

private:
    std::lock_guard<std::mutex> lock_;
};

template <class Call>
KeychainStatus guarded(const Call& call)
{
    try
    {
        return call();
    }
    catch (const std::bad_alloc&)
    {
        throw;
    }
    catch (...)
    {
        return KeychainStatus::notAvailable;
    }
}

template <class Call>
KeychainStatus locked(const Call& call)
{
    const CallLock lock;
    return guarded(call);
}

}  // namespace

std::shared_ptr<platform::Keychain> SecItem::keychainOrSystems(
    std::shared_ptr<platform::Keychain> keychain)
{
    if (!keychain)
        keychain = platform::services().keychain;
    if (!keychain)
        platform::fatal(
            "There is no keychain for stores: set the field keychain with "
            "platform::replaceServices, or name one where the store is made");
    return keychain;
}

void SecItem::requireOutsideKeychain()
{
    if (platform::isAuthenticating())
        platform::fatal(
            "A store was used from inside Authenticator::authenticate: the read that "
            "waits for its answer holds the keychain, so that this would never end");
    if (insideCall)
        platform::fatal(
            "A store was used from inside a call of its keychain, by a diagnostic sink "
            "for example: the call holds the keychain, so that this would never end");
}

std::optional<KeychainErrorCase> SecItem::error(KeychainStatus status) noexcept
{
    switch (status)
    {
        case KeychainStatus::success:
            return std::nullopt;
        case KeychainStatus::missingEntitlement:
            return KeychainError::missingEntitlement;
        case KeychainStatus::itemNotFound:
            return KeychainError::itemNotFound;
        case KeychainStatus::authenticationFailed:
        case KeychainStatus::userCancelled:
            return KeychainError::userCancelled;
        default:
            return KeychainError::couldNotAccessKeychain;
    }
}

void SecItem::check(KeychainStatus status)
{
    if (const auto failed = error(status))
        throw KeychainError(*failed);
}

void SecItem::checkDeleted(KeychainStatus status)
{
    if (status != KeychainStatus::itemNotFound)
        check(status);
}

platform::KeychainQuery SecItem::itemQuery(const platform::KeychainQuery& base,
                                           std::string_view key)
{
    return base.with(platform::KeychainAttribute::kSecAttrAccount, std::string(key));
}

SecItem::SecItem(std::shared_ptr<platform::Keychain> keychain) : keychain_(std::move(keychain)) {}

KeychainStatus SecItem::add(const platform::KeychainQuery& attributes) const
{
    return locked([&] { return keychain_->add(attributes); });
}

platform::KeychainAnswer SecItem::copyMatching(const platform::KeychainQuery& query) const
{
    platform::KeychainAnswer answer;
    answer.status = locked(
        [&]
        {
            answer = keychain_->copyMatching(query);
            return answer.status;
        });
    return answer;
}

KeychainStatus SecItem::deleteMatching(const platform::KeychainQuery& query) const
{
    return locked([&] { return keychain_->deleteMatching(query); });
}

KeychainStatus SecItem::replace(const platform::KeychainQuery& old,
                                const platform::KeychainQuery& attributes) const
{
    // Making the scope and letting go of it touch no item, so that they need no lock.
    std::unique_ptr<platform::KeychainStagedScope> scope;
    const auto staged = guarded(
        [&]
        {
            scope = keychain_->stage();
            return KeychainStatus::success;
        });
    if (staged != KeychainStatus::success)
        return staged;

    const auto deleted = locked([&] { return scope->deleteMatching(old); });
    if (deleted != KeychainStatus::success && deleted != KeychainStatus::itemNotFound)
        return deleted;
    return locked([&] { return scope->add(attributes); });
}

}  // namespace valet
