#pragma once

#include "Platform/Security/Embedded/EmbeddedInspection.hpp"
#include "Platform/Security/Embedded/StorePlaces.hpp"

#include <sys/stat.h>
#include <sys/types.h>

#include <filesystem>
#include <optional>

namespace platform
{

class FileLayer;

/// What stands under a name, looked at without opening it: a database file that is opened and
/// closed beside SQLite loses the process's locks on it.
struct FileFacts
{
    dev_t device = 0;
    ino_t number = 0;
    off_t size = 0;

    bool isSameFile(const FileFacts& other) const noexcept
    {
        return device == other.device && number == other.number;
    }
};

/// What speaks against something that stands in a place for a file or a folder.
EmbeddedFile::Condition conditionOf(const struct stat& found, bool isFolder) noexcept;

/// Nothing where there is no such file. Throws `StoreFault` where it cannot be told.
std::optional<FileFacts> factsOf(const std::filesystem::path& file);

/// The same, and refuses a file that is not the user's own, is a link or anything else than a file,
/// or is open to others.
std::optional<FileFacts> privateFactsOf(const std::filesystem::path& file);

/// Makes the folder, and those above it that are missing, durably and for the user alone. One that
/// exists is refused unless it is the user's own, closed to others, and no link.
void requirePrivateFolder(const std::filesystem::path& folder, FileLayer& files);

/// Makes a folder's own name durable, and those of the folders above it that are the user's:
/// whoever made them may have been killed before the sync.
void syncAbove(const std::filesystem::path& folder, FileLayer& files);

}  // namespace platform
