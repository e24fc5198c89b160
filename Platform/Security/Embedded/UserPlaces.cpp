#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"

#include "Platform/Basics/UserFolder.hpp"

namespace platform
{

EmbeddedItemStore::Configuration EmbeddedItemStore::Configuration::ofUser()
{
    Configuration configuration;
    const auto data = userFolder("XDG_DATA_HOME", ".local/share");
    const auto settings = userFolder("XDG_CONFIG_HOME", ".config");
    if (!data.empty())
        configuration.dataFolder = data / "tessera" / "keychain";
    if (!settings.empty())
        configuration.keyFolder = settings / "tessera";
    return configuration;
}

}  // namespace platform
