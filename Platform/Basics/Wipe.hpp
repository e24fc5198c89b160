#pragma once

#include <cstddef>

namespace platform
{

/// Overwrites memory in a way that the compiler does not remove.
void wipe(void* memory, std::size_t size) noexcept;

}  // namespace platform
