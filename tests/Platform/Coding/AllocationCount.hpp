#pragma once

#include <cstddef>

namespace test
{

/// How often this thread has called `operator new` since it started. The whole test program's
/// operator is replaced for it, so there can be only one of these.
std::size_t allocationCount() noexcept;

}  // namespace test
