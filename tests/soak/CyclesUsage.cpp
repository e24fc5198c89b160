#include "tests/soak/CyclesUsage.hpp"

#include <malloc.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <iterator>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define TESSERA_SOAK_SANITIZER
#endif
#elif defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define TESSERA_SOAK_SANITIZER
#endif

#ifdef TESSERA_SOAK_SANITIZER
#include <sanitizer/allocator_interface.h>
#endif

namespace soak
{
namespace
{

std::size_t entries(const char* folder)
{
    std::filesystem::directory_iterator begin(folder), end;
    return static_cast<std::size_t>(std::distance(begin, end));
}

std::size_t memory()
{
#ifdef TESSERA_SOAK_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    ::malloc_trim(0);
    std::size_t size = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
#endif
}

}  // namespace

void CyclesUsage::prepare()
{
#ifndef TESSERA_SOAK_SANITIZER
    ::mallopt(M_ARENA_MAX, 1);
#endif
}

CyclesUsage CyclesUsage::now()
{
    return {.bytes = memory(),
            .descriptors = entries("/proc/self/fd"),
            .threads = entries("/proc/self/task")};
}

const char* CyclesUsage::memoryName()
{
#ifdef TESSERA_SOAK_SANITIZER
    return "live allocations";
#else
    return "resident memory";
#endif
}

}  // namespace soak
