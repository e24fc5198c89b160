#include "tests/Platform/Security/Keychain/KeychainSuite.hpp"

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"

#include "tests/support/MemoryItemStore.hpp"
#include "tests/support/SecretServiceForTest.hpp"
#include "tests/support/TemporaryFolder.hpp"

using namespace platform;

KeychainImplementation memoryImplementation()
{
    return {"Memory", []() -> std::function<std::shared_ptr<ItemStore>()>
            {
                auto disk = std::make_shared<MemoryItemStore>();
                return [disk] { return disk; };
            }};
}

KeychainImplementation embeddedImplementation()
{
    return {"Embedded", []() -> std::function<std::shared_ptr<ItemStore>()>
            {
                auto folder = std::make_shared<TemporaryFolder>();
                return [folder]
                {
                    EmbeddedItemStore::Configuration configuration;
                    configuration.dataFolder = folder->path() / "data";
                    configuration.keyFolder = folder->path() / "key";
                    return std::make_shared<EmbeddedItemStore>(std::move(configuration));
                };
            }};
}

KeychainImplementation secretServiceImplementation()
{
    return {"SecretService", []() -> std::function<std::shared_ptr<ItemStore>()>
            {
                if (!PrivateSecretService::isInstalled())
                    return nullptr;
                auto service = std::make_shared<PrivateSecretService>();
                return [service]
                {
                    SecretServiceItemStore::Configuration configuration;
                    configuration.busAddress = service->busAddress();
                    configuration.lockFolder = service->lockFolder();
                    return std::make_shared<SecretServiceItemStore>(std::move(configuration));
                };
            }};
}
