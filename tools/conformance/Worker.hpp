#pragma once

#include "tools/conformance/DataFiles.hpp"

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>

namespace conformance
{

/// Judges the cases in child processes. With one `atOnce`, one child goes on from case to case, in
/// their order; otherwise each case has a child of its own, and as many as that run together. When
/// a child dies or lets `limit` pass without a verdict, the case that it was at has failed and a
/// new child takes the next one. `take` gets the verdict of every case as soon as it is known.
///
/// The calling process must have one thread only. Throws `std::system_error` when there can be no
/// child process.
void judgeApart(std::span<const Case> cases, std::size_t atOnce, std::chrono::milliseconds limit,
                const std::function<void(std::size_t, Verdict)>& take);

}  // namespace conformance
