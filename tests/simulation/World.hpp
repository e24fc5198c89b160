#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace simulation
{

struct SeedResult
{
    int steps = 0;
    /// What was wrong first, if anything was.
    std::optional<std::string> complaint = {};
};

/// Two programs of one user, their machine and their server, in the order of events that the seed
/// chooses.
SeedResult runWorld(std::uint64_t seed, bool isTraced);

}  // namespace simulation
