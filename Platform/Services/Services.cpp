#include "Platform/Services/Services.hpp"

#include "Platform/Basics/UserFolder.hpp"
#include "Platform/Concurrency/WorkerThread.hpp"
#include "Platform/KeyValueStore/FileKeyValueStore.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "Platform/Security/Authentication/Passcode.hpp"
#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"

#include <openssl/crypto.h>

#include <cstdlib>
#include <mutex>
#include <utility>

namespace platform
{
namespace
{

/// The name of the executable, for a host that names nothing.
KeychainProgram systemProgram()
{
    std::error_code ignored;
    auto name = std::filesystem::read_symlink("/proc/self/exe", ignored).filename().string();
    // The kernel marks a file that an upgrade has replaced while it runs.
    constexpr std::string_view mark = " (deleted)";
    if (name.ends_with(mark))
        name.resize(name.size() - mark.size());
    return {.identifier = std::move(name)};
}

std::shared_ptr<EmbeddedItemStore> systemItemStore()
{
    auto configuration = EmbeddedItemStore::Configuration::ofUser();
    configuration.diagnostics = diagnosticsOfServices();
    configuration.passphrase = []() -> std::optional<SecretString>
    {
        const auto ask = services().passphrase;
        return ask ? ask() : std::nullopt;
    };
    configuration.firstKeyMayBePlain = true;
    return std::make_shared<EmbeddedItemStore>(std::move(configuration));
}

FileKeyValueStore::Configuration systemKeyValues()
{
    auto configuration = FileKeyValueStore::Configuration::ofUser();
    configuration.diagnostics = diagnosticsOfServices();
    return configuration;
}

/// What programs share lies in a folder of it.
std::filesystem::path systemStateFolder()
{
    const auto state = userFolder("XDG_STATE_HOME", ".local/state");
    return state.empty() ? state : state / "tessera";
}

struct SystemServices
{
    WorkerThread worker;
    WorkerThread promptTimers;
    WorkerThread storage;
    std::shared_ptr<CurlURLSession> session = std::make_shared<CurlURLSession>();
    std::shared_ptr<EmbeddedItemStore> items = systemItemStore();
    std::shared_ptr<FileKeyValueStore> keyValues =
        std::make_shared<FileKeyValueStore>(worker.executor(), systemKeyValues());
    Services services{.clock = systemClock(worker.executor()),
                      .device = systemDevice(),
                      .urlSession = session,
                      .background = worker.executor(),
                      .storage = storage.executor(),
                      .mainActor = nullptr,
                      .resourceFolders = systemResourceFolders(),
                      .program = systemProgram(),
                      .diagnostics = nullptr,
                      .authenticator = nullptr,
                      .passphrase = nullptr,
                      .keyValueStore = keyValues,
                      .stateFolder = systemStateFolder(),
                      .keychain = keychainOver(items)};
};

SystemServices& system()
{
    // Kept for ever, because the host's own static objects may still use it while the process ends.
    // Its threads must not: they would meet libraries that have cleaned up.
    static auto& instance = []() -> SystemServices&
    {
        // OpenSSL cleans up in an exit handler of its own. Ours must run before it, and handlers
        // run in the reverse order of their registration. (Asked for nothing, OpenSSL does not
        // begin.)
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
        auto& made = *new SystemServices;
        std::atexit(
            []
            {
                system().session->shutdown();
                system().worker.stop();
                system().storage.finish();
                // Last of the threads: a piece of work may wait for a user who does not answer.
                system().promptTimers.stop();
                system().items->close();
            });
        return made;
    }();
    return instance;
}

/// Times how long a user may take. A read that waits for the user may run on `background`, whose
/// own timers stand still meanwhile; so they have a thread of their own, once there is anyone to
/// ask.
std::shared_ptr<Clock> promptClock(const Services& now)
{
    if (!now.authenticator || now.clock != systemServices().clock)
        return now.clock;
    return systemClock(system().promptTimers.executor());
}

ProtectionServices protection()
{
    const auto now = services();
    return {now.authenticator, now.diagnostics, promptClock(now)};
}

struct ProcessWide
{
    std::mutex mutex;
    Services current = systemServices();
};

ProcessWide& processWide()
{
    static auto& instance = *new ProcessWide;
    return instance;
}

}  // namespace

const Services& systemServices()
{
    return system().services;
}

std::shared_ptr<StoreKeychain> keychainOver(std::shared_ptr<ItemStore> store)
{
    return std::make_shared<StoreKeychain>(
        std::move(store), [] { return KeychainSurroundings{services().program, protection()}; });
}

std::unique_ptr<Passcode> passcodeOfServices()
{
    const auto keychain = std::dynamic_pointer_cast<StoreKeychain>(services().keychain);
    return keychain ? std::make_unique<Passcode>(keychain->store(), protection) : nullptr;
}

DiagnosticSink diagnosticsOfServices()
{
    return [](const Diagnostic& diagnostic)
    {
        if (const auto sink = services().diagnostics)
            sink(diagnostic);
    };
}

Services services()
{
    auto& shared = processWide();
    const std::lock_guard lock(shared.mutex);
    return shared.current;
}

Services replaceServices(Services replacement)
{
    auto& shared = processWide();
    const std::lock_guard lock(shared.mutex);
    return std::exchange(shared.current, std::move(replacement));
}

}  // namespace platform
