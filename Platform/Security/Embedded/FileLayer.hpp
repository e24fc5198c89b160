#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <span>

namespace platform
{

/// The calls that make and replace the store's small files durably: the key file, the first, empty
/// database file, and their folders. Everything later happens below SQLite, in its own file layer.
///
/// Each behaves as the system call it is named after: 0, or -1 with `errno`. Tests derive from it
/// to count, to fail, or to forget what was not synced. Any thread may call.
class FileLayer
{
public:
    virtual ~FileLayer() = default;

    /// Mode 0700, whatever the umask.
    virtual int makeFolder(const std::filesystem::path& folder);

    /// Creates a file that was not there (`EEXIST` otherwise), mode 0600 whatever the umask, for
    /// writing; returns its descriptor.
    virtual int createExclusively(const std::filesystem::path& file);
    virtual ssize_t write(int descriptor, std::span<const std::byte> bytes);
    virtual int sync(int descriptor);
    virtual int close(int descriptor);

    /// Gives a file a second name; `EEXIST` where that name is taken.
    virtual int link(const std::filesystem::path& from, const std::filesystem::path& to);
    /// Replaces what `to` named.
    virtual int rename(const std::filesystem::path& from, const std::filesystem::path& to);
    virtual int remove(const std::filesystem::path& file);

    /// Makes the names in a folder durable.
    virtual int syncFolder(const std::filesystem::path& folder);
};

}  // namespace platform
