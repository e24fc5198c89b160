#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace platform
{

/// How long one operation still waits for others, over all its waits together.
class Patience
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Patience(std::chrono::milliseconds length)
        : length_(length), end_(Clock::now() + length)
    {}

    /// To be called after something that is no wait for others, such as the user's typing. Time
    /// passes for a constant too.
    void restart() const { end_ = Clock::now() + length_; }

    Clock::time_point end() const noexcept { return end_; }

    /// Waits a little, longer at each further round; false, at once, when the time is over. Neither
    /// a file lock nor SQLite can wake a waiter, so all that is left is to look again; and often,
    /// for whoever looks rarely finds the lock taken each time while others come and go.
    bool pause(int round) const
    {
        using namespace std::chrono_literals;
        const auto left = end_ - Clock::now();
        if (left <= 0s)
            return false;
        const auto step = std::chrono::microseconds(200) * (1 << std::min(round, 3));
        std::this_thread::sleep_for(std::min<Clock::duration>(left, step));
        return true;
    }

private:
    std::chrono::milliseconds length_;
    mutable Clock::time_point end_;
};

}  // namespace platform
