#pragma once

#include "tools/conformance/DataFiles.hpp"

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>

namespace conformance
{

/// Judges the cases in their order, in child processes: one child goes on from case to case, and
/// when it dies or lets `limit` pass without a verdict, the case that it was at has failed and a
/// new child takes the next one. `take` gets the verdict of every case, in the same order.
///
/// The calling process must have one thread only. Throws `std::system_error` when there can be no
/// child process.
void judgeApart(std::span<const Case> cases, std::chrono::milliseconds limit,
                const std::function<void(std::size_t, Verdict)>& take);

}  // namespace conformance
