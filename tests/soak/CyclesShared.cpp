#include "tests/soak/CyclesShared.hpp"

namespace soak
{
namespace
{

constexpr std::uint64_t baseAt = 500;
constexpr std::size_t allowedGrowth = std::size_t{1024} * 1024;

}  // namespace

CyclesShared::CyclesShared(Report& report, unsigned users, std::uint64_t count)
    : report_(report),
      users_(users),
      count_(count),
      baseCycle_(std::min((baseAt + users - 1) / users, (count + 1) / 2)),
      allRest_(users, [this]() noexcept { weighNow(); })
{}

void CyclesShared::passed()
{
    const std::lock_guard lock(mutex_);
    report_.passed();
}

void CyclesShared::failed(const std::string& what)
{
    const std::lock_guard lock(mutex_);
    report_.failed(what);
}

bool CyclesShared::weighsAfter(std::uint64_t cycle) const
{
    return cycle == count_ || cycle % baseCycle_ == 0;
}

void CyclesShared::add(const CyclesCounts& counts)
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
    last_ = CyclesUsage::now();
    weighings_ += " " + std::to_string(last_.bytes / 1024);
    if (!base_)
        base_ = last_;
    if (const auto more = growth(last_); !more.empty())
        report_.failed("since cycle " + std::to_string(users_ * baseCycle_) + ", " + more);
}

std::string CyclesShared::growth(const CyclesUsage& now) const
{
    if (now.bytes >= base_->bytes + allowedGrowth)
        return std::string(CyclesUsage::memoryName()) + " grew by " +
               std::to_string((now.bytes - base_->bytes) / 1024) + " KiB";
    if (now.descriptors > base_->descriptors)
        return std::to_string(now.descriptors - base_->descriptors) + " more descriptors";
    if (now.threads > base_->threads)
        return std::to_string(now.threads - base_->threads) + " more threads";
    return {};
}

std::string CyclesShared::detail() const
{
    const auto fromTo = [](std::size_t from, std::size_t to)
    { return " " + std::to_string(from) + " to " + std::to_string(to); };
    const auto base = base_.value_or(CyclesUsage());
    return std::to_string(counts_.calls) + " calls, " + std::to_string(counts_.cancelled) +
           " cancelled; " + std::to_string(counts_.released) + " accounts released; " +
           std::to_string(counts_.calmCycles) + " calm cycles; the programs agreed after " +
           std::to_string(counts_.longestAgreement.count()) + " ms at most; every " +
           std::to_string(users_ * baseCycle_) + " cycles, KiB of " + CyclesUsage::memoryName() +
           weighings_ + ", descriptors" + fromTo(base.descriptors, last_.descriptors) +
           ", threads" + fromTo(base.threads, last_.threads);
}

}  // namespace soak
