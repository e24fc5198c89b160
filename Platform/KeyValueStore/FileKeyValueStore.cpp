#include "Platform/KeyValueStore/FileKeyValueStore.hpp"

#include "Platform/KeyValueStore/FileParticipant.hpp"
#include "Platform/KeyValueStore/KeyValueHub.hpp"

#include <cstdlib>
#include <utility>

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

}  // namespace

FileKeyValueStore::Configuration FileKeyValueStore::Configuration::ofUser()
{
    Configuration configuration;
    auto state = absoluteFromEnvironment("XDG_STATE_HOME");
    if (const auto home = absoluteFromEnvironment("HOME"); state.empty() && !home.empty())
        state = home / ".local/state";
    if (!state.empty())
        configuration.folder = state / "tessera" / "shared";
    return configuration;
}

FileKeyValueStore::FileKeyValueStore(const Executor& background, Configuration configuration)
    : hub_(std::make_shared<KeyValueHub>(background, std::move(configuration.folder),
                                         std::move(configuration.diagnostics)))
{}

FileKeyValueStore::~FileKeyValueStore() = default;

std::unique_ptr<UbiquitousKeyValueStore::Participant> FileKeyValueStore::join(
    const Executor& executor, Handler handler)
{
    return std::make_unique<FileParticipant>(hub_, executor, std::move(handler));
}

}  // namespace platform
