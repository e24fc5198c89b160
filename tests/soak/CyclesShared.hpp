#pragma once

#include "tests/soak/CyclesUsage.hpp"
#include "tests/soak/Report.hpp"

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace soak
{

struct CyclesCounts
{
    std::uint64_t calls = 0;
    std::uint64_t cancelled = 0;
    std::uint64_t released = 0;
    std::uint64_t calmCycles = 0;
    std::chrono::milliseconds longestAgreement{0};
};

/// What the users of a run have in common: the report, and the process that they weigh while all of
/// them rest. From the 500th cycle on (from the middle of a shorter run) it must not hold more than
/// then: less than 1 MiB, no descriptor, no thread. Any thread calls its members.
class CyclesShared
{
public:
    /// `count` are the cycles of each user.
    CyclesShared(Report& report, unsigned users, std::uint64_t count);

    void passed();
    void failed(const std::string& what);

    bool weighsAfter(std::uint64_t cycle) const;

    /// Every user calls it and waits there for the others.
    void weigh() { allRest_.arrive_and_wait(); }

    void add(const CyclesCounts& counts);
    std::string detail() const;

private:
    void weighNow() noexcept;
    std::string growth(const CyclesUsage& now) const;

    Report& report_;
    const unsigned users_;
    const std::uint64_t count_;
    const std::uint64_t baseCycle_;
    std::mutex mutex_;
    CyclesCounts counts_;
    std::optional<CyclesUsage> base_;
    CyclesUsage last_;
    std::string weighings_;
    std::barrier<std::function<void()>> allRest_;
};

}  // namespace soak
