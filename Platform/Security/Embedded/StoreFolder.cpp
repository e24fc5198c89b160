#include "Platform/Security/Embedded/StoreFolder.hpp"

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

void requirePrivate(const std::filesystem::path& path, const struct stat& found, mode_t type)
{
    const bool folder = type == S_IFDIR;
    if (S_ISLNK(found.st_mode))
        refuse(path, " is a symbolic link.", "Put the real one in its place.");
    if ((found.st_mode & S_IFMT) != type)
        refuse(path, folder ? " is not a folder." : " is not a regular file.", "Move it away.");
    if (found.st_uid != ::geteuid())
        refuse(path, " belongs to another user.", "Give it to the user who runs the program.");
    if ((found.st_mode & 077) != 0)
        refuse(path, " is open to other users.",
               (folder ? "Run: chmod 700 " : "Run: chmod 600 ") + path.string());
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
    if (files.syncFolder(parent) != 0)
        throw StoreFault::ofSystem("Cannot sync the folder " + parent.string(), errno);
}

FileFacts brief(const struct stat& found)
{
    return {found.st_dev, found.st_ino, found.st_size};
}

}  // namespace

StorePlaces::StorePlaces(std::filesystem::path data, std::filesystem::path settings)
    : dataFolder(std::move(data)),
      keyFolder(std::move(settings)),
      database(dataFolder / "keychain.db"),
      databaseDraft(dataFolder / "keychain.db.new"),
      log(dataFolder / "keychain.db-wal"),
      logIndex(dataFolder / "keychain.db-shm"),
      rollback(dataFolder / "keychain.db-journal"),
      key(keyFolder / "keychain.key"),
      keyDraft(keyFolder / "keychain.key.new"),
      lock(keyFolder / "keychain.lock")
{}

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
    requirePrivate(file, *found, S_IFREG);
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
    requirePrivate(folder, *found, S_IFDIR);
}

void syncAbove(const std::filesystem::path& folder, FileLayer& files)
{
    for (auto path = folder; path != path.parent_path(); path = path.parent_path())
    {
        const auto parent = path.parent_path();
        struct stat found{};
        if (::stat(parent.c_str(), &found) != 0 || found.st_uid != ::geteuid())
            return;
        if (files.syncFolder(parent) != 0)
            throw StoreFault::ofSystem("Cannot sync the folder " + parent.string(), errno);
    }
}

}  // namespace platform
