#include "tests/simulation/SimulatedClock.hpp"

#include <algorithm>
#include <limits>

namespace simulation
{

struct SimulatedClock::HeldTimer final : Timer
{
    explicit HeldTimer(std::shared_ptr<Wait> ofWait) : wait(std::move(ofWait)) {}
    std::shared_ptr<Wait> wait;
};

bool SimulatedClock::isAwaited() const
{
    return std::ranges::any_of(waits_, [](const auto& wait) { return !wait.expired(); });
}

void SimulatedClock::fireNext()
{
    constexpr auto ever = std::numeric_limits<std::uint64_t>::max();
    const auto next = takeNext(ever);
    if (!next)
        return;
    // Another wait that ends at the same time has a step of its own.
    const auto by = next->due > elapsed_ ? next->due - elapsed_ : 0;
    elapsed_ += by;
    wall_ = wall_ + static_cast<double>(by) / 1e9;
    next->fire();
}

void SimulatedClock::advance(std::uint64_t nanoseconds)
{
    const auto until = elapsed_ + nanoseconds;
    while (const auto due = takeNext(until))
        due->fire();
    elapsed_ = until;
    wall_ = wall_ + static_cast<double>(nanoseconds) / 1e9;
}

std::shared_ptr<platform::Clock::Timer> SimulatedClock::schedule(std::uint64_t nanoseconds,
                                                                 std::function<void()> fire)
{
    auto wait = std::make_shared<Wait>(Wait{elapsed_ + nanoseconds, std::move(fire)});
    waits_.push_back(wait);
    return std::make_shared<HeldTimer>(std::move(wait));
}

std::shared_ptr<SimulatedClock::Wait> SimulatedClock::takeNext(std::uint64_t until)
{
    std::shared_ptr<Wait> next;
    std::erase_if(waits_, [](const auto& wait) { return wait.expired(); });
    for (const auto& weak : waits_)
        if (auto wait = weak.lock(); wait->due <= until && (!next || wait->due < next->due))
            next = std::move(wait);
    std::erase_if(waits_, [&](const auto& wait) { return wait.lock() == next; });
    return next;
}

}  // namespace simulation
