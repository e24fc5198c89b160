#pragma once

#include "tools/shared/Interrupts.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>

#include <sys/types.h>

namespace fetch
{

/// Writes to a descriptor, which may be a pipe that nobody reads. Throws `std::system_error`, and
/// `platform::CancellationError` after a signal.
void writeAll(int descriptor, std::span<const std::byte> bytes,
              const commandline::Interrupts& interrupts);

/// A file that gets its whole content or stays as it was. Made before anything is fetched for it,
/// so that a place which takes no file is told of at once.
///
/// Where the file system lets it, the content has no name until it is whole: then nothing is left
/// behind even by a process that is killed. An existing file keeps its mode; a link stays, and what
/// it points to is replaced. A device or a pipe is written to as it is.
///
/// All throw `commandline::Failure`.
class OutputFile
{
public:
    explicit OutputFile(const std::filesystem::path& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// To be called once; throws `platform::CancellationError` after a signal.
    void write(std::span<const std::byte> content, const commandline::Interrupts& interrupts);

private:
    void openAsItIs();
    void openBeside();
    void putInPlace();
    void giveName();
    std::filesystem::path freshName() const;
    [[noreturn]] void fail(int error) const;

    const std::filesystem::path path_;
    std::filesystem::path target_;
    /// The content's own name, if it has one.
    std::filesystem::path temporary_;
    /// That of the file which is replaced.
    std::optional<mode_t> mode_;
    bool asItIs_ = false;
    int descriptor_ = -1;
};

}  // namespace fetch
