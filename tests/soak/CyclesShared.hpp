#pragma once

#include "tests/soak/Report.hpp"

#include <barrier>
#include <functional>
#include <mutex>
#include <optional>

namespace soak
{

/// What the users of a run have in common: the report, and the process that they weigh while all of
/// them rest. From the 500th cycle on (from the middle of a shorter run) it must not hold more than
/// then: less than 1 MiB, no descriptor, no thread. Any thread calls its members.
class CyclesShared
{
public:
    struct Counts
    {
        std::uint64_t calls = 0;
        std::uint64_t cancelled = 0;
        std::uint64_t released = 0;
        std::uint64_t calmCycles = 0;
        std::chrono::milliseconds longestAgreement{0};
    };

    /// `count` are the cycles of each user. To be made before there are other threads.
    CyclesShared(Report& report, unsigned users, std::uint64_t count);

    void judged(const std::string& wrong, const std::string& where);

    bool weighsAfter(std::uint64_t cycle) const
    {
        return cycle == count_ || cycle % baseCycle_ == 0;
    }

    /// Every user calls it and waits there for the others.
    void weigh() { allRest_.arrive_and_wait(); }

    void add(const Counts& counts);
    std::string detail() const;

private:
    /// What a process holds, at a moment when nothing is under way.
    struct Usage
    {
        std::size_t bytes = 0;
        std::size_t descriptors = 0;
        std::size_t threads = 0;
    };

    void weighNow() noexcept;

    Report& report_;
    const unsigned users_;
    const std::uint64_t count_;
    const std::uint64_t baseCycle_;
    std::mutex mutex_;
    Counts counts_;
    std::optional<Usage> base_;
    Usage last_;
    std::string weighings_;
    std::barrier<std::function<void()>> allRest_;
};

}  // namespace soak
