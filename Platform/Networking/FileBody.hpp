#pragma once

#include "Platform/Basics/Descriptor.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace platform
{

/// The file that an upload sends: as many bytes as it held when it was opened. Throws `URLError`
/// (`unreadableFile`) for everything that keeps it from that, but `std::system_error` when the
/// machine has no descriptor left.
class FileBody
{
public:
    explicit FileBody(const std::filesystem::path& file);

    std::int64_t size() const noexcept { return size_; }

    /// Fills the room with what comes next; 0 at the end alone.
    std::size_t read(std::span<std::byte> room);

    /// Where the next read begins.
    void seek(std::int64_t offset) noexcept { offset_ = offset; }

private:
    const Descriptor file_;
    std::int64_t size_ = 0;
    std::int64_t offset_ = 0;
};

}  // namespace platform
