#pragma once

#include <cstddef>

namespace soak
{

/// What a process holds, at a moment when nothing is under way.
struct CyclesUsage
{
    /// Plain builds: resident memory, after freed memory was given back. Under a sanitizer, whose
    /// own bookkeeping is resident too: the bytes of all live allocations.
    std::size_t bytes = 0;
    std::size_t descriptors = 0;
    std::size_t threads = 0;

    /// Before there are threads: lets them share the allocator's memory, so that what is resident
    /// does not depend on which of them allocated when.
    static void prepare();
    static CyclesUsage now();
    static const char* memoryName();
};

}  // namespace soak
