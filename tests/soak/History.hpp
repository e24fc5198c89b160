#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace soak
{

/// What one finished call says about one key: what must have been stored at the instant at which it
/// took effect, and what was stored after it.
struct Event
{
    enum class Needs : std::uint8_t
    {
        anything,
        absent,
        present,
        exactly,
    };
    enum class Leaves : std::uint8_t
    {
        same,
        absent,
        value,
    };

    /// On one clock for all processes.
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::uint64_t value = 0;
    std::uint32_t key = 0;
    std::int32_t status = 0;
    /// Who called; each process calls one after the other.
    std::uint8_t process = 0;
    Needs needs = Needs::anything;
    Leaves leaves = Leaves::same;
};

/// Whether there is an order of the calls on one key, in which each takes effect between its start
/// and its end, that explains all of them, with nothing stored at first. Decides it exactly.
/// Nothing when there is one, otherwise the index of the first call in `events` that none explains,
/// in the order of ends.
///
/// At most 64 processes.
std::optional<std::size_t> firstUnexplained(const std::vector<Event>& events);

}  // namespace soak
