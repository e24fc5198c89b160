#pragma once

#include "Platform/Basics/Date.hpp"

#include <cstdint>

namespace platform
{

/// How many passcodes were tried since the last right one, and when the last of them was. A try is
/// counted before it is made, so that a program that is killed, or one that runs beside, has had
/// it.
///
/// The first five are free. Then each has to wait: 30 s after the fifth, twice as long after each
/// further one, an hour at most.
struct PasscodeTries
{
    std::uint32_t count = 0;
    Date last;

    static constexpr std::uint32_t free = 5;
    static constexpr double firstWait = 30;
    static constexpr double longestWait = 3600;

    /// The seconds until another try is allowed; zero or less: now.
    double waitLeft(Date now) const noexcept;

    /// The clock was set back behind the last try, so that nothing is known about the time since:
    /// the wait starts over, and is no longer than it was. True if something changed.
    bool restartIfSetBack(Date now) noexcept;

    void countOne(Date now) noexcept;

    /// Takes back the first `tries` of the ones counted; others that were made meanwhile remain.
    void forgive(std::uint32_t tries) noexcept;
};

}  // namespace platform
