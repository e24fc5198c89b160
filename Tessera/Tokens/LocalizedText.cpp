#include "Tessera/Tokens/LocalizedText.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Device/ResourceBundle.hpp"
#include "Platform/Services/Services.hpp"

#include <mutex>

namespace tessera
{
namespace
{

/// The framework's bundle, found again only when the services name other folders.
std::shared_ptr<const platform::ResourceBundle> frameworkBundle(
    const std::vector<std::filesystem::path>& folders)
{
    struct Found
    {
        std::mutex mutex;
        std::vector<std::filesystem::path> folders;
        std::shared_ptr<const platform::ResourceBundle> bundle;
    };
    static auto& found = *new Found;
    const std::lock_guard lock(found.mutex);
    if (!found.bundle || found.folders != folders)
    {
        found.bundle = platform::ResourceBundle::find("net.ostra.Tessera", folders);
        found.folders = folders;
    }
    if (!found.bundle)
        platform::fatal("Unable to find bundle Tessera");
    return found.bundle;
}

}  // namespace

std::string localizedText(std::string_view key)
{
    const auto services = platform::services();
    const auto bundle = frameworkBundle(services.resourceFolders);
    return bundle->localizedString(key, "Tessera", services.device->preferredLanguages());
}

}  // namespace tessera
