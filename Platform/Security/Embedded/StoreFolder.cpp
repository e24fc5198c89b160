#include "Platform/Security/Embedded/StoreFolder.hpp"

#include "Platform/Security/Embedded/DurableFile.hpp"
#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace platform
{
namespace
{

std::optional<struct stat> look(const std::filesystem::path& path)
{
    struct stat found{};
    if (::lstat(path.c_str(), &found) == 0)
        return found;
    if (errno == ENOENT)
        return std::nullopt;
    throw StoreFault::ofSystem("Cannot look at " + path.string(), errno);
}

[[noreturn]] void refuse(const std::filesystem::path& path, std::string_view fault,
                         std::string nextStep)
{
    throw StoreFault(KeychainStatus::notAvailable, path.string() + std::string(fault),
                     std::move(nextStep));
}

void requirePrivate(const std::filesystem::path& path, const struct stat& found, bool isFolder)
{
    using enum EmbeddedFile::Condition;
    switch (conditionOf(found, isFolder))
    {
        case symbolicLink:
            refuse(path, " is a symbolic link.", "Put the real one in its place.");
        case otherKind:
            refuse(path, isFolder ? " is not a folder." : " is not a regular file.",
                   "Move it away.");
        case otherOwner:
            refuse(path, " belongs to another user.", "Give it to the user who runs the program.");
        case openToOthers:
            refuse(path, " is open to other users.",
                   (isFolder ? "Run: chmod 700 " : "Run: chmod 600 ") + path.string());
        case missing:
        case unseen:
        case proper:
            break;
    }
}

void makeFolder(const std::filesystem::path& folder, FileLayer& files)
{
    const auto parent = folder.parent_path();
    if (parent != folder && !std::filesystem::exists(parent))
        makeFolder(parent, files);
    if (files.makeFolder(folder) != 0)
    {
        if (errno == EEXIST)
            return;  // another program was faster
        throw StoreFault::ofSystem("Cannot make the folder " + folder.string(), errno);
    }
    syncFolder(files, parent);
}

FileFacts brief(const struct stat& found)
{
    return {found.st_dev, found.st_ino, found.st_size};
}

}  // namespace

EmbeddedFile::Condition conditionOf(const struct stat& found, bool isFolder) noexcept
{
    using enum EmbeddedFile::Condition;
    if (S_ISLNK(found.st_mode))
        return symbolicLink;
    if (isFolder ? !S_ISDIR(found.st_mode) : !S_ISREG(found.st_mode))
        return otherKind;
    if (found.st_uid != ::geteuid())
        return otherOwner;
    return (found.st_mode & 077) != 0 ? openToOthers : proper;
}

std::optional<FileFacts> factsOf(const std::filesystem::path& file)
{
    const auto found = look(file);
    return found ? std::optional(brief(*found)) : std::nullopt;
}

std::optional<FileFacts> privateFactsOf(const std::filesystem::path& file)
{
    const auto found = look(file);
    if (!found)
        return std::nullopt;
    requirePrivate(file, *found, false);
    return brief(*found);
}

void requirePrivateFolder(const std::filesystem::path& folder, FileLayer& files)
{
    if (!folder.is_absolute())
        refuse(folder, "No place is known for the keychain: the folder is not an absolute path.",
               "Set HOME.");
    auto found = look(folder);
    if (!found)
    {
        makeFolder(folder, files);
        found = look(folder);
    }
    if (!found)
        refuse(folder, " vanished while it was made.", "Try again.");
    requirePrivate(folder, *found, true);
}

void syncAbove(const std::filesystem::path& folder, FileLayer& files)
{
    for (auto path = folder; path != path.parent_path(); path = path.parent_path())
    {
        const auto parent = path.parent_path();
        struct stat found{};
        if (::stat(parent.c_str(), &found) != 0 || found.st_uid != ::geteuid())
            return;
        syncFolder(files, parent);
    }
}

}  // namespace platform
