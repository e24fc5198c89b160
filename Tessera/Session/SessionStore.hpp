#pragma once

#include "Tessera/Session/SessionMachine.hpp"
#include "Valet/Valet.hpp"

#include <atomic>
#include <memory>
#include <mutex>

namespace tessera
{

/// The items of a session in the keychain: "Token", which all programs of the environment share,
/// and "Info", the client's own. Any thread calls it; calls take turns and wait for the disk.
///
/// What an older generation wants to write or remove is left undone, from the moment that a newer
/// one has begun. Reading throws `AccountError::keychainAccess` for everything but "no such item".
class SessionStore
{
public:
    /// An empty identifier stops the process.
    SessionStore(const std::string& environmentIdentifier, const std::string& clientIdentifier,
                 std::shared_ptr<platform::Keychain> keychain);

    std::optional<platform::SecretBytes> token() const;

    struct Items
    {
        std::optional<platform::SecretBytes> token;
        /// Of a stored token alone. What cannot be read now is left where it is, and is nothing:
        /// only what was read can be found unusable.
        std::optional<platform::SecretBytes> info;
    };
    /// Throws for the token alone.
    Items items() const;

    /// Whether it was written: false for an older generation. Throws `keychainAccess`.
    bool writeToken(Generation generation, const platform::SecretString& token);
    bool writeInfo(Generation generation, const platform::SecretString& info);

    /// Removes the token if it is this one, for a sign-out that could not. Whether it is gone.
    bool removeLeftBehind(Generation generation, const platform::SecretBytes& token);

    /// Orders a removal, and carries out one that was ordered; nothing is said about success. In
    /// between, the order waits with the work of the storage thread.
    void orderInfoRemoval();
    void removeInfoAsOrdered();

    /// The account is gone: what was ordered is done at once, and nothing is written after this.
    /// Waits for a write that is under way. Whether a token was written that nobody was told of.
    bool close(Generation last);

    /// The token that was written is known to others.
    void tokenAnnounced() { isUnannounced_ = false; }

    /// Does not wait: a write that is under way may still end.
    void generationBegins(Generation generation) { generation_ = generation; }

    enum class Left
    {
        nothing,
        /// The token could not be removed.
        unremoved,
        /// The token is not the one that was to be removed.
        anothers,
        /// Nothing was tried: the token cannot be read, and may be another's.
        unreadable
    };
    struct Removal
    {
        /// What was stored, if it could be read.
        std::optional<platform::SecretBytes> token;
        Left left = Left::nothing;
    };
    /// Removes both items after what is under way; the order in which that waits is the reason
    /// that no older write comes after it. With `onlyOf`, a token that differs
    /// stays, and so does one that cannot be read.
    Removal signOut(Generation generation, const platform::SecretString* onlyOf = nullptr);

private:
    using Store = std::shared_ptr<valet::Valet>;

    bool write(const Store& store, const char* key, Generation generation,
               const platform::SecretString& text);

    const Store environmentValet;
    const Store clientValet;
    void removeInfo();

    mutable std::mutex mutex_;
    std::atomic<Generation> generation_ = 0;
    std::atomic<int> orderedRemovals_ = 0;
    std::atomic<bool> isUnannounced_ = false;
};

}  // namespace tessera
