#pragma once

#include <filesystem>

namespace platform
{

/// Where the files of one store lie. A draft becomes the file it is named after, or is thrown away.
/// A value.
struct StorePlaces
{
    StorePlaces(std::filesystem::path dataFolder, std::filesystem::path keyFolder);

    std::filesystem::path dataFolder, keyFolder;
    std::filesystem::path database, databaseDraft;
    /// SQLite's write-ahead log, its index and its rollback journal.
    std::filesystem::path log, logIndex, rollback;
    std::filesystem::path key, keyDraft, lock;
};

}  // namespace platform
