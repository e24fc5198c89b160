#pragma once

#include "Platform/Security/Embedded/FileLayer.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace soak
{

/// One call on the disk, as it is made below a store.
struct FileCall
{
    enum class Kind
    {
        create,
        read,
        write,
        truncate,
        sync,
        remove,
        rename,
        /// A second name for a file.
        link,
        makeFolder,
        syncFolder,
    };

    Kind kind = Kind::write;
    std::string path = {};
    /// Where a rename or a link leads.
    std::string target = {};
    /// For a write its place, for a truncation the new size.
    std::uint64_t offset = 0;
    std::span<const std::byte> data = {};
};

/// What becomes of a call.
enum class Fate
{
    done,
    /// Refused: the disk is full.
    full,
    /// Refused: an error of the device.
    error,
    /// Of a write, the first half is done, then the disk is full.
    half,
};

/// Told of every call, from whichever thread makes it.
class FileWatcher
{
public:
    virtual ~FileWatcher() = default;

    /// Decides about a call before it is made.
    virtual Fate before(const FileCall&) { return Fate::done; }

    /// The call was made, and succeeded.
    virtual void after(const FileCall&) {}
};

/// The name of a file layer of SQLite that does what the machine's own does, and tells the watcher.
const char* watchedVFS();

/// The store's calls on its small files, told to the same watcher.
std::shared_ptr<platform::FileLayer> watchedFileLayer();

/// Replaces the watcher; null for none. Not while a store is in use.
void watchFiles(std::shared_ptr<FileWatcher> watcher);

// For the two layers.
Fate fateOf(const FileCall& call);
void tellWatcher(const FileCall& call);

}  // namespace soak
