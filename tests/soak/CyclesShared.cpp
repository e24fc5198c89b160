#include "tests/soak/CyclesShared.hpp"

#include <malloc.h>
#include <unistd.h>
#include <algorithm>
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

constexpr std::uint64_t baseAt = 500;
constexpr std::size_t allowedGrowth = std::size_t{1024} * 1024;

#ifdef TESSERA_SOAK_SANITIZER
// Its own bookkeeping is resident, too.
constexpr auto memoryName = "live allocations";
#else
constexpr auto memoryName = "resident memory";
#endif

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

std::size_t entries(const char* folder)
{
    std::filesystem::directory_iterator begin(folder), end;
    return static_cast<std::size_t>(std::distance(begin, end));
}

}  // namespace

CyclesShared::CyclesShared(Report& report, unsigned users, std::uint64_t count)
    : report_(report),
      users_(users),
      count_(count),
      baseCycle_(std::min((baseAt + users - 1) / users, (count + 1) / 2)),
      allRest_(users, [this]() noexcept { weighNow(); })
{
#ifndef TESSERA_SOAK_SANITIZER
    // What is resident shall not depend on which thread allocated when.
    ::mallopt(M_ARENA_MAX, 1);
#endif
}

void CyclesShared::judged(const std::string& wrong, const std::string& where)
{
    const std::lock_guard lock(mutex_);
    report_.judged(wrong, where);
}

void CyclesShared::add(const Counts& counts)
{
    const std::lock_guard lock(mutex_);
    counts_.calls += counts.calls;
    counts_.cancelled += counts.cancelled;
    counts_.released += counts.released;
    counts_.calmCycles += counts.calmCycles;
    counts_.longestAgreement = std::max(counts_.longestAgreement, counts.longestAgreement);
}

void CyclesShared::weighNow() noexcept
{
    const std::lock_guard lock(mutex_);
    last_ = {memory(), entries("/proc/self/fd"), entries("/proc/self/task")};
    weighings_ += " " + std::to_string(last_.bytes / 1024);
    if (!base_)
        base_ = last_;
    if (last_.bytes >= base_->bytes + allowedGrowth || last_.descriptors > base_->descriptors ||
        last_.threads > base_->threads)
        report_.failed("more is held than after cycle " + std::to_string(users_ * baseCycle_) +
                       ": " + detail());
}

std::string CyclesShared::detail() const
{
    const auto fromTo = [](std::size_t from, std::size_t to)
    { return " " + std::to_string(from) + " to " + std::to_string(to); };
    const auto base = base_.value_or(Usage());
    return std::to_string(counts_.calls) + " calls, " + std::to_string(counts_.cancelled) +
           " cancelled; " + std::to_string(counts_.released) + " accounts released; " +
           std::to_string(counts_.calmCycles) + " calm cycles; the programs agreed after " +
           std::to_string(counts_.longestAgreement.count()) + " ms at most; every " +
           std::to_string(users_ * baseCycle_) + " cycles, KiB of " + memoryName + weighings_ +
           ", descriptors" + fromTo(base.descriptors, last_.descriptors) + ", threads" +
           fromTo(base.threads, last_.threads);
}

}  // namespace soak
