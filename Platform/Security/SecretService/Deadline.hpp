#pragma once

#include <chrono>

namespace platform
{

/// When a caller has waited long enough, on the clock that never jumps.
using Deadline = std::chrono::steady_clock::time_point;

}  // namespace platform
