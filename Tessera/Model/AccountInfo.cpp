#include "Tessera/Model/AccountInfo.hpp"

#include "Platform/Services/Services.hpp"

namespace tessera
{

AccountInfoFreshnes AccountInfo::freshness() const
{
    return freshness(platform::services().clock->now());
}

AccountInfoFreshnes AccountInfo::freshness(platform::Date now) const
{
    constexpr double sixHours = 21'600;
    return now <= issuedAt + sixHours ? AccountInfoFreshnes::fresh : AccountInfoFreshnes::stale;
}

}  // namespace tessera
