#pragma once

#include "Platform/Concurrency/Clock.hpp"

#include <memory>
#include <vector>

namespace simulation
{

/// Time that moves from one wait to the next. The wall clock goes along, and may be set.
class SimulatedClock final : public platform::Clock
{
public:
    platform::Date now() const override { return wall_; }
    void jump(double seconds) { wall_ = wall_ + seconds; }

    /// Since the beginning, whatever the wall clock was set to.
    std::uint64_t elapsed() const { return elapsed_; }

    /// Whether anybody waits.
    bool isAwaited() const;

    /// Moves on to the end of the shortest wait, and ends it.
    void fireNext();

    void advance(std::uint64_t nanoseconds);

private:
    struct Wait
    {
        std::uint64_t due = 0;
        std::function<void()> fire;
    };
    struct HeldTimer;

    std::shared_ptr<Timer> schedule(std::uint64_t nanoseconds, std::function<void()> fire) override;
    std::shared_ptr<Wait> takeNext(std::uint64_t until);

    platform::Date wall_{1'700'000'000};
    std::uint64_t elapsed_ = 0;
    std::vector<std::weak_ptr<Wait>> waits_;
};

}  // namespace simulation
