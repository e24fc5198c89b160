#include "tools/tessera/keychain/KeychainHost.hpp"

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/tessera/keychain/EmbeddedFiles.hpp"

#include <algorithm>

namespace commandline
{

void DiagnosticLog::add(const platform::Diagnostic& diagnostic)
{
    const std::lock_guard lock(mutex_);
    if (std::ranges::find(diagnostics_, diagnostic) == diagnostics_.end())
        diagnostics_.push_back(diagnostic);
}

std::vector<platform::Diagnostic> DiagnosticLog::all() const
{
    const std::lock_guard lock(mutex_);
    return diagnostics_;
}

std::vector<platform::Diagnostic> DiagnosticLog::take()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(diagnostics_, {});
}

KeychainHost::KeychainHost(const KeychainCommand& command, Interrupts& interrupts,
                           BlockingWork::Abandon abandon)
    : work_(interrupts, std::move(abandon)), asking_(command, interrupts, work_)
{
    if (command.kind == KeychainKind::embedded)
        store_ = embedded_ =
            std::make_shared<platform::EmbeddedItemStore>(embeddedConfiguration(embeddedPlaces()));
    else
        store_ = secretService_ = std::make_shared<platform::SecretServiceItemStore>(
            platform::SecretServiceItemStore::Configuration{.diagnostics =
                                                                platform::diagnosticsOfServices()});
    keychain_ = platform::keychainOver(store_);

    auto services = platform::services();
    services.program = {.identifier = command.program};
    if (command.store.group)
        services.program.accessGroups.push_back(command.store.group->accessGroup());
    services.diagnostics = [log = log_](const auto& diagnostic) { log->add(diagnostic); };
    services.authenticator = std::make_shared<TerminalAuthenticator>(asking_);
    services.keychain = keychain_;
    before_ = platform::replaceServices(std::move(services));
}

KeychainHost::~KeychainHost()
{
    platform::replaceServices(std::move(before_));
}

platform::EmbeddedItemStore::Configuration KeychainHost::embeddedConfiguration(
    const platform::StorePlaces& places)
{
    platform::EmbeddedItemStore::Configuration configuration;
    configuration.dataFolder = places.dataFolder;
    configuration.keyFolder = places.keyFolder;
    configuration.diagnostics = platform::diagnosticsOfServices();
    configuration.passphrase = [this] { return passphrase(); };
    configuration.firstKeyMayBePlain = true;
    return configuration;
}

void KeychainHost::readGivenPassphrase()
{
    given_ = asking_.givenPassphrase();
    if (given_)
        usePassphrase(*given_);
}

void KeychainHost::usePassphrase(const platform::SecretString& passphrase)
{
    const std::lock_guard lock(passphraseMutex_);
    passphrase_ = passphrase;
}

std::optional<platform::SecretString> KeychainHost::passphrase()
{
    const std::lock_guard lock(passphraseMutex_);
    try
    {
        // A first key is wrapped only if a passphrase was given: nobody is asked for one unawares.
        if (!passphrase_ && keyIsWrapped(embeddedPlaces()))
            passphrase_ = asking_.passphrase();
    }
    catch (const std::exception&)
    {
        // Not answered; the store then says that it is locked.
    }
    return passphrase_;
}

}  // namespace commandline
