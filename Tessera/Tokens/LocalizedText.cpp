#include "Tessera/Tokens/LocalizedText.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Device/ResourceBundle.hpp"
#include "Platform/Services/Services.hpp"

#include <mutex>

namespace tessera
{
namespace
{

constexpr auto identifier = "net.ostra.Tessera";

[[noreturn]] void stopWithoutBundle(const std::vector<std::filesystem::path>& folders)
{
    std::string looked;
    for (const auto& folder : folders)
        looked += (looked.empty() ? "" : ", ") + (folder / identifier).string();
    platform::fatal(
        "Unable to find bundle Tessera. Looked for: " + (looked.empty() ? "nothing" : looked) +
        ". Install share/tessera with the program, or name its folder in "
        "platform::Services::resourceFolders");
}

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
        found.bundle = platform::ResourceBundle::find(identifier, folders);
        found.folders = folders;
    }
    if (!found.bundle)
        stopWithoutBundle(folders);
    return found.bundle;
}

}  // namespace

void requireLocalizedTexts()
{
    frameworkBundle(platform::services().resourceFolders);
}

std::string localizedText(std::string_view key)
{
    const auto services = platform::services();
    const auto bundle = frameworkBundle(services.resourceFolders);
    return bundle->localizedString(key, "Tessera", services.device->preferredLanguages());
}

}  // namespace tessera
