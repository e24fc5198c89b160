#pragma once

#include <cstddef>
#include <cstdint>
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
        /// A lock that lets its holder write.
        lockForWriting,
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

/// Told of every call before it is made, from whichever thread makes it, and decides about it.
class FileWatcher
{
public:
    virtual ~FileWatcher() = default;
    virtual Fate before(const FileCall& call) = 0;

    /// The call was made, and succeeded.
    virtual void after(const FileCall& call) { static_cast<void>(call); }
};

}  // namespace soak
