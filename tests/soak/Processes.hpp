#pragma once

#include "tests/soak/Report.hpp"
#include "tests/soak/Runs.hpp"

#include <string>

namespace soak
{

/// Several processes write, read and delete the same few items. Every answer must be explained by
/// some order of the calls, and none may be an error. Returns a line about the run.
std::string contend(const Place& place, const Settings& settings, std::uint64_t count,
                    Report& report);

}  // namespace soak
