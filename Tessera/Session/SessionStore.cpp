#include "Tessera/Session/SessionStore.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Tessera/Model/AccountError.hpp"

namespace tessera
{
namespace
{

using platform::SecretBytes;
using valet::KeychainError;

constexpr auto tokenKey = "Token";
constexpr auto infoKey = "Info";

valet::Identifier identifier(const std::string& text)
{
    auto made = valet::Identifier::make(text);
    if (!made)
        platform::fatal("A localizedKeychainIdentifier of the environment or the client is empty");
    return *std::move(made);
}

std::shared_ptr<valet::Valet> environmentStore(const std::string& name,
                                               std::shared_ptr<platform::Keychain> keychain)
{
    const auto group = valet::SharedGroupIdentifier::make("group", "net.ostra.account");
    return valet::Valet::iCloudSharedGroupValetWithExplicitlySet(
        group.value(), identifier(name), valet::CloudAccessibility::afterFirstUnlock,
        std::move(keychain));
}

std::optional<SecretBytes> object(const valet::Valet& store, const char* key)
{
    try
    {
        return store.object(key);
    }
    catch (const KeychainError& error)
    {
        if (error.errorCase() == KeychainError::itemNotFound)
            return std::nullopt;
        throw AccountError(AccountError::keychainAccess);
    }
}

/// False when the item may still be there.
bool remove(valet::Valet& store, const char* key)
{
    try
    {
        store.removeObject(key);
        return true;
    }
    catch (const KeychainError&)
    {
        return false;
    }
}

}  // namespace

SessionStore::SessionStore(const std::string& environmentIdentifier,
                           const std::string& clientIdentifier,
                           std::shared_ptr<platform::Keychain> keychain)
    : environmentValet(environmentStore(environmentIdentifier, keychain)),
      clientValet(valet::Valet::valetWithExplicitlySet(
          identifier(clientIdentifier), valet::Accessibility::afterFirstUnlock, keychain))
{}

std::optional<SecretBytes> SessionStore::token() const
{
    const std::lock_guard lock(mutex_);
    return object(*environmentValet, tokenKey);
}

SessionStore::Items SessionStore::items() const
{
    const std::lock_guard lock(mutex_);
    Items items{.token = object(*environmentValet, tokenKey), .info = {}};
    if (!items.token)
        return items;
    try
    {
        items.info = object(*clientValet, infoKey);
    }
    catch (const AccountError&)
    {
        // As the structure says.
    }
    return items;
}

bool SessionStore::write(const Store& store, const char* key, Generation generation,
                         const platform::SecretString& text)
{
    if (generation != generation_)
        return false;
    try
    {
        store->setObject(text.bytes(), key);
        return true;
    }
    catch (const KeychainError&)
    {
        throw AccountError(AccountError::keychainAccess);
    }
}

bool SessionStore::writeToken(Generation generation, const platform::SecretString& token)
{
    const std::lock_guard lock(mutex_);
    const bool written = write(environmentValet, tokenKey, generation, token);
    isUnannounced_ = isUnannounced_ || written;
    return written;
}

bool SessionStore::writeInfo(Generation generation, const platform::SecretString& info)
{
    const std::lock_guard lock(mutex_);
    return write(clientValet, infoKey, generation, info);
}

bool SessionStore::removeLeftBehind(Generation generation, const SecretBytes& token)
{
    const std::lock_guard lock(mutex_);
    if (generation != generation_ || object(*environmentValet, tokenKey) != token)
        return false;
    removeInfo();
    return remove(*environmentValet, tokenKey);
}

void SessionStore::removeInfo()
{
    static_cast<void>(remove(*clientValet, infoKey));
}

void SessionStore::orderInfoRemoval()
{
    ++orderedRemovals_;
}

void SessionStore::removeInfoAsOrdered()
{
    const std::lock_guard lock(mutex_);
    if (orderedRemovals_ == 0)
        return;
    --orderedRemovals_;
    removeInfo();
}

bool SessionStore::close(Generation last)
{
    generationBegins(last);
    const std::lock_guard lock(mutex_);
    // What was to be written after an order is not written any more.
    if (orderedRemovals_.exchange(0) > 0)
        removeInfo();
    return isUnannounced_;
}

SessionStore::Removal SessionStore::signOut(Generation generation,
                                            const platform::SecretString* onlyOf)
{
    generationBegins(generation);
    const std::lock_guard lock(mutex_);
    Removal removal;
    bool readable = true;
    try
    {
        removal.token = object(*environmentValet, tokenKey);
    }
    catch (const AccountError&)
    {
        // Counts as no token: there is none that the server could be told of.
        readable = false;
    }
    const bool isAnothers =
        onlyOf && removal.token && *removal.token != SecretBytes(onlyOf->bytes());
    if (isAnothers)
        removal.left = Left::anothers;
    else if (onlyOf && !readable)
        removal.left = Left::unreadable;
    else if (!remove(*environmentValet, tokenKey))
        removal.left = Left::unremoved;
    removeInfo();
    return removal;
}

}  // namespace tessera
