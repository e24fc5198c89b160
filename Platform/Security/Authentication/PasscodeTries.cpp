#include "Platform/Security/Authentication/PasscodeTries.hpp"

#include <algorithm>
#include <limits>

namespace platform
{

double PasscodeTries::waitLeft(Date now) const noexcept
{
    if (count < free)
        return 0;
    double wait = firstWait;
    for (auto further = count - free; further > 0 && wait < longestWait; --further)
        wait *= 2;
    wait = std::min(wait, longestWait);
    return wait - std::clamp(now - last, 0.0, wait);
}

bool PasscodeTries::restartIfSetBack(Date now) noexcept
{
    if (!(now < last))
        return false;
    last = now;
    return true;
}

void PasscodeTries::countOne(Date now) noexcept
{
    if (count < std::numeric_limits<std::uint32_t>::max())
        ++count;
    last = now;
}

void PasscodeTries::forgive(std::uint32_t tries) noexcept
{
    count -= std::min(tries, count);
}

}  // namespace platform
