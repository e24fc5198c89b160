#pragma once

#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Concurrency/MainActor.hpp"
#include "Platform/Device/Device.hpp"
#include "Platform/Device/ResourceBundle.hpp"
#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace platform
{

class Passcode;
class URLSession;

/// The services of the machine, one of each. Objects take what they need in their constructor; what
/// has no constructor argument (a static accessor, a default, a localized text) reads the one
/// process-wide instance, `services()`.
///
/// A host starts from `systemServices()` and replaces fields before it makes its first object of
/// the framework; the others stay on the system's own threads, whichever it replaces. Tests replace
/// all of them. Copies share the services.
struct Services
{
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Device> device;
    std::shared_ptr<URLSession> urlSession;

    /// Runs actors and timers, off the main thread.
    Executor background;

    /// Runs what waits for the disk, one piece at a time: off the main thread, and not where timers
    /// and transfers would stand still meanwhile. The system's finishes at the process's end what
    /// was handed over before. Never the main thread: its window would stand still.
    Executor storage;

    /// The host's main thread. There is none until the host names it: `RunLoop` is one for programs
    /// that have no event loop of their own.
    std::shared_ptr<MainActor> mainActor;

    /// Where resource bundles are looked for, first folder first.
    std::vector<std::filesystem::path> resourceFolders;

    /// The program's name and its access groups in the keychain. The identifier is the name of the
    /// executable until the host gives a better one, which it should: items are found by it.
    KeychainProgram program;

    /// Told what lies behind an error that has no room for it. Nobody is, until the host names one.
    DiagnosticSink diagnostics;

    /// Asks the user before protected items are released. There is none until the host names it.
    std::shared_ptr<Authenticator> authenticator;

    /// Gives the passphrase of the embedded keychain, where one is set: with `tessera keychain
    /// passphrase set`, for example. Nothing means that the user gives none: the keychain cannot be
    /// used, and the next operation asks again. When the first key is made, an answer becomes its
    /// passphrase, and nothing leaves it plain.
    ///
    /// Called inside a store's operation, on whichever thread that is, so that it must not use a
    /// store. Other threads wait meanwhile, the main thread too when it signs an account out or
    /// destroys it: this must not wait for the main thread.
    std::function<std::optional<SecretString>()> passphrase;

    /// Where programs of the user tell each other that something changed. It touches nothing on
    /// disk before somebody joins.
    std::shared_ptr<UbiquitousKeyValueStore> keyValueStore;

    /// Where the history of sessions is kept: $XDG_STATE_HOME/tessera, or ~/.local/state/tessera.
    /// An empty one keeps none, as where there is no home.
    std::filesystem::path stateFolder;

    /// Where stores keep their items: the user's embedded keychain, unless the host prefers another
    /// (`keychainOver`). It follows program, diagnostics,
    /// authenticator and passphrase as they are at each call.
    std::shared_ptr<Keychain> keychain;
};

/// The real services: libcurl, the machine's clock, one background thread. Built on first use and
/// kept until the process ends. libcurl's thread starts with the first transfer; both threads end
/// in an exit handler, before the libraries that they use clean up. The keychain touches nothing on
/// disk before its first use.
const Services& systemServices();

/// A keychain over `store` that takes the program, the diagnostics and the authenticator from the
/// process-wide services at each call.
///
///     auto keyring = std::make_shared<SecretServiceItemStore>(
///         SecretServiceItemStore::Configuration{.diagnostics = diagnosticsOfServices()});
///     services.keychain = keychainOver(keyring);
///
/// Such a store is to be shut down before `main` returns, since services are never torn down.
std::shared_ptr<StoreKeychain> keychainOver(std::shared_ptr<ItemStore> store);

/// The passcode of the keychain in the services, to set, change or remove it; null where the host
/// named a keychain of its own making.
std::unique_ptr<Passcode> passcodeOfServices();

/// A sink that passes on to the one in the process-wide services, for a store's configuration.
DiagnosticSink diagnosticsOfServices();

/// The process-wide services, `systemServices()` until they are replaced.
Services services();

/// Replaces the process-wide services, and returns the ones that were there. Objects that exist
/// keep what they were made with.
Services replaceServices(Services replacement);

}  // namespace platform
