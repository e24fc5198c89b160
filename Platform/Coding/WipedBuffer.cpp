#include "Platform/Coding/WipedBuffer.hpp"

#include <string.h>

namespace platform
{

void wipeScratch(void* memory, std::size_t size) noexcept
{
    explicit_bzero(memory, size);
}

}  // namespace platform
