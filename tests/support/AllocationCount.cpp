#include "tests/support/AllocationCount.hpp"

#include <cstdlib>
#include <new>

#if defined(__SANITIZE_THREAD__)
#define TESSERA_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TESSERA_THREAD_SANITIZER 1
#endif
#endif

namespace
{
thread_local std::size_t count = 0;
}

std::size_t test::allocationCount() noexcept
{
    return count;
}

#ifdef TESSERA_THREAD_SANITIZER

bool test::allocationsAreCounted() noexcept
{
    return false;
}

#else

bool test::allocationsAreCounted() noexcept
{
    return true;
}

void* operator new(std::size_t size)
{
    ++count;
    if (void* memory = std::malloc(size > 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

#endif
