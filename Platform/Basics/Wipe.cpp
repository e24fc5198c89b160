#include "Platform/Basics/Wipe.hpp"

#include <string.h>

namespace platform
{

void wipe(void* memory, std::size_t size) noexcept
{
    explicit_bzero(memory, size);
}

}  // namespace platform
