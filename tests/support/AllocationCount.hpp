#pragma once

#include <cstddef>

namespace test
{

/// How often this thread has called `operator new` since it started; the operator of the whole test
/// program is replaced for it.
std::size_t allocationCount() noexcept;

/// False under ThreadSanitizer, which has an operator of its own that cannot be replaced.
bool allocationsAreCounted() noexcept;

}  // namespace test
