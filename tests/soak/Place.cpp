#include "tests/soak/Place.hpp"

#include "tests/soak/WatchedFileLayer.hpp"
#include "tests/soak/WatchedVFS.hpp"

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"

#include <mutex>

namespace soak
{
namespace
{

platform::SecretString passphrase(std::uint64_t number)
{
    return platform::SecretString("passphrase " + std::to_string(number));
}

/// Keeps the last diagnostic; the sink is called from any thread.
class LastDiagnostic
{
public:
    platform::DiagnosticSink sink()
    {
        return [shared = shared_](const platform::Diagnostic& one)
        {
            const std::lock_guard lock(shared->mutex);
            shared->text = "(" + one.cause + " " + one.nextStep + ")";
        };
    }

    std::string text() const
    {
        const std::lock_guard lock(shared_->mutex);
        return shared_->text;
    }

private:
    struct Shared
    {
        std::mutex mutex;
        std::string text;
    };
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

class EmbeddedStore final : public Store
{
public:
    EmbeddedStore(const Place& place, Below below) : passphrase_(place.passphrase)
    {
        platform::EmbeddedItemStore::Configuration configuration;
        configuration.dataFolder = place.folder / "data";
        configuration.keyFolder = place.folder / "key";
        if (passphrase_)
            configuration.passphrase = [this] { return std::optional(passphrase(*passphrase_)); };
        configuration.firstKeyMayBePlain = true;
        configuration.diagnostics = diagnostics_.sink();
        if (below == Below::watched)
        {
            configuration.vfs = watchedVFS();
            configuration.files = std::make_shared<WatchedFileLayer>();
        }
        embedded_ = std::make_shared<platform::EmbeddedItemStore>(std::move(configuration));
        items_ = embedded_;
    }

    const std::shared_ptr<platform::ItemStore>& items() const override { return items_; }

    platform::KeychainStatus changePassphrase(std::uint64_t number) override
    {
        const auto status =
            embedded_->changePassphrase(passphrase(*passphrase_), passphrase(number));
        if (status == platform::KeychainStatus::success)
            passphrase_ = number;
        return status;
    }

    std::string diagnostics() const override { return diagnostics_.text(); }

private:
    std::optional<std::uint64_t> passphrase_;
    LastDiagnostic diagnostics_;
    std::shared_ptr<platform::EmbeddedItemStore> embedded_;
    std::shared_ptr<platform::ItemStore> items_;
};

class ServiceStore final : public Store
{
public:
    explicit ServiceStore(const Place& place)
    {
        platform::SecretServiceItemStore::Configuration configuration;
        configuration.busAddress = place.busAddress;
        configuration.lockFolder = place.folder;
        configuration.diagnostics = diagnostics_.sink();
        items_ = std::make_shared<platform::SecretServiceItemStore>(std::move(configuration));
    }

    const std::shared_ptr<platform::ItemStore>& items() const override { return items_; }

    platform::KeychainStatus changePassphrase(std::uint64_t) override
    {
        return platform::KeychainStatus::notAvailable;
    }

    std::string diagnostics() const override { return diagnostics_.text(); }

private:
    LastDiagnostic diagnostics_;
    std::shared_ptr<platform::ItemStore> items_;
};

}  // namespace

std::vector<std::string> Place::arguments() const
{
    std::vector<std::string> arguments{"--folder", folder};
    if (isSecretService())
        arguments.insert(arguments.end(), {"--bus", busAddress});
    if (passphrase)
        arguments.insert(arguments.end(), {"--passphrase", std::to_string(*passphrase)});
    return arguments;
}

std::unique_ptr<Store> openStore(const Place& place, Below below)
{
    if (place.isSecretService())
        return std::make_unique<ServiceStore>(place);
    return std::make_unique<EmbeddedStore>(place, below);
}

}  // namespace soak
