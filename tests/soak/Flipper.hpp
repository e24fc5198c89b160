#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace soak
{

/// A byte of one of the store's files, and which of its bits are turned. Travels through a pipe.
struct Flip
{
    std::uint64_t offset = 0;
    std::uint32_t file = 0;
    std::uint8_t mask = 0;
};

enum class FlipVerdict : std::uint8_t
{
    /// Every answer was right.
    right,
    /// Every answer was right or an access error, and at least one was an error.
    refused,
    wrong,
};

/// In a fixed order.
std::vector<std::filesystem::path> filesOf(const std::filesystem::path& store);

}  // namespace soak
