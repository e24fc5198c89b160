#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"

#include <cstdlib>

namespace platform
{
namespace
{

std::filesystem::path absoluteFromEnvironment(const char* name)
{
    const char* value = std::getenv(name);
    std::filesystem::path path = value ? value : "";
    return path.is_absolute() ? path : std::filesystem::path();
}

/// A base folder of the user's; empty where there is no home.
std::filesystem::path baseFolder(const char* variable, const char* belowHome)
{
    if (auto named = absoluteFromEnvironment(variable); !named.empty())
        return named;
    const auto home = absoluteFromEnvironment("HOME");
    return home.empty() ? home : home / belowHome;
}

}  // namespace

EmbeddedItemStore::Configuration EmbeddedItemStore::Configuration::ofUser()
{
    Configuration configuration;
    const auto data = baseFolder("XDG_DATA_HOME", ".local/share");
    const auto settings = baseFolder("XDG_CONFIG_HOME", ".config");
    if (!data.empty())
        configuration.dataFolder = data / "tessera" / "keychain";
    if (!settings.empty())
        configuration.keyFolder = settings / "tessera";
    return configuration;
}

}  // namespace platform
