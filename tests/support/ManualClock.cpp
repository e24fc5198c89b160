#include "tests/support/ManualClock.hpp"

#include <algorithm>
#include <limits>

struct ManualClock::ManualTimer final : Timer
{
    explicit ManualTimer(std::shared_ptr<Wait> ofWait) : wait(std::move(ofWait)) {}
    std::shared_ptr<Wait> wait;
};

std::shared_ptr<platform::Clock::Timer> ManualClock::schedule(std::uint64_t nanoseconds,
                                                              std::function<void()> fire)
{
    const std::lock_guard lock(mutex_);
    const auto latest = std::numeric_limits<std::uint64_t>::max();
    const auto due = nanoseconds > latest - elapsed_ ? latest : elapsed_ + nanoseconds;
    auto wait = std::make_shared<Wait>(Wait{due, std::move(fire)});
    waits_.push_back(wait);
    return std::make_shared<ManualTimer>(std::move(wait));
}

void ManualClock::advance(std::uint64_t nanoseconds)
{
    std::list<std::shared_ptr<Wait>> due;
    {
        const std::lock_guard lock(mutex_);
        elapsed_ += nanoseconds;
        now_ = now_ + static_cast<double>(nanoseconds) / 1e9;
        waits_.remove_if(
            [&](const std::weak_ptr<Wait>& waiting)
            {
                auto wait = waiting.lock();
                if (wait && wait->due <= elapsed_)
                    due.push_back(wait);
                return !wait || wait->due <= elapsed_;
            });
    }
    due.sort([](const auto& left, const auto& right) { return left->due < right->due; });
    for (const auto& wait : due)
        wait->fire();
}

void ManualClock::fireNext()
{
    std::shared_ptr<Wait> next;
    {
        const std::lock_guard lock(mutex_);
        waits_.remove_if([](const auto& wait) { return wait.expired(); });
        const auto shortest =
            std::ranges::min_element(waits_, {}, [](const auto& wait) { return wait.lock()->due; });
        if (shortest == waits_.end())
            return;
        next = shortest->lock();
        waits_.erase(shortest);
        // A clock that was moved past the end of a wait stays where it is.
        const auto span = std::max(next->due, elapsed_) - elapsed_;
        elapsed_ += span;
        now_ = now_ + static_cast<double>(span) / 1e9;
    }
    next->fire();
}

std::size_t ManualClock::timers() const
{
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(
        waits_.begin(), waits_.end(), [](const auto& wait) { return !wait.expired(); }));
}
