#pragma once

#include "tools/shared/Failure.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>

namespace fetch
{

/// The file that is sent, as it is before the transfer: what is there afterwards is removed only if
/// nothing tells that it is anything else.
///
/// Throws `commandline::Failure` unless it is a regular file, or a link to one.
class SentFile
{
public:
    explicit SentFile(std::filesystem::path path);

    std::int64_t size() const { return state_.size; }

    /// Removes it, of a link the link itself, if all of its bytes were sent. Returns why it stays.
    std::optional<commandline::Report> remove(std::int64_t sent) const;

private:
    struct State
    {
        std::uint64_t device = 0;
        std::uint64_t node = 0;
        std::int64_t size = 0;
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;

        bool operator==(const State&) const = default;
    };

    /// 0, or an error number.
    static int look(const std::filesystem::path& path, State& state);

    std::filesystem::path path_;
    State state_;
};

}  // namespace fetch
