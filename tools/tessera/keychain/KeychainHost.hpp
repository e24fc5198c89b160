#pragma once

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/tessera/keychain/Asking.hpp"
#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <memory>
#include <mutex>
#include <vector>

namespace platform
{
class SecretServiceItemStore;
struct StorePlaces;
}  // namespace platform

namespace commandline
{

/// Keeps what the layers below report, each cause once. Any thread may add.
class DiagnosticLog
{
public:
    void add(const platform::Diagnostic& diagnostic);
    std::vector<platform::Diagnostic> all() const;
    /// All, and forgets them.
    std::vector<platform::Diagnostic> take();

private:
    mutable std::mutex mutex_;
    std::vector<platform::Diagnostic> diagnostics_;
};

/// What makes this program a host of a keychain: whose items it asks for, which keychain it uses,
/// who answers for the user, and where reports go. Nothing is opened before it is used.
///
/// There is one at a time: it sets the process-wide services.
class KeychainHost
{
public:
    KeychainHost(const KeychainCommand& command, Interrupts& interrupts,
                 BlockingWork::Abandon abandon);
    ~KeychainHost();
    KeychainHost(const KeychainHost&) = delete;
    KeychainHost& operator=(const KeychainHost&) = delete;

    BlockingWork& work() { return work_; }
    const Asking& asking() const { return asking_; }
    DiagnosticLog& log() { return *log_; }

    const std::shared_ptr<platform::Keychain>& keychain() const { return keychain_; }
    const std::shared_ptr<platform::ItemStore>& store() const { return store_; }
    /// The store, if it is of this kind; null otherwise.
    const std::shared_ptr<platform::EmbeddedItemStore>& embeddedStore() const { return embedded_; }
    const std::shared_ptr<platform::SecretServiceItemStore>& secretServiceStore() const
    {
        return secretService_;
    }

    /// The embedded keychain at these places; it asks for the passphrase when it needs it, once.
    platform::EmbeddedItemStore::Configuration embeddedConfiguration(
        const platform::StorePlaces& places);

    /// Reads the passphrase, if a descriptor for it was named: first of all, since that may be
    /// standard input, on which more follows.
    void readGivenPassphrase();
    const std::optional<platform::SecretString>& givenPassphrase() const { return given_; }

    /// From here on this is the passphrase, and nobody is asked.
    void usePassphrase(const platform::SecretString& passphrase);

private:
    std::optional<platform::SecretString> passphrase();

    BlockingWork work_;
    const Asking asking_;
    const std::shared_ptr<DiagnosticLog> log_ = std::make_shared<DiagnosticLog>();
    std::optional<platform::SecretString> given_;
    std::mutex passphraseMutex_;
    std::optional<platform::SecretString> passphrase_;
    std::shared_ptr<platform::EmbeddedItemStore> embedded_;
    std::shared_ptr<platform::SecretServiceItemStore> secretService_;
    std::shared_ptr<platform::ItemStore> store_;
    std::shared_ptr<platform::Keychain> keychain_;
    platform::Services before_;
};

}  // namespace commandline
