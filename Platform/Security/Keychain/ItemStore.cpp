#include "Platform/Security/Keychain/ItemStore.hpp"

#include <algorithm>

namespace platform
{

bool ItemPattern::matches(const KeychainItem& item) const
{
    const auto& identity = item.identity;
    return (!service || *service == identity.service) &&
           (!account || *account == identity.account) &&
           std::ranges::find(accessGroups, identity.accessGroup) != accessGroups.end() &&
           synchronizable == identity.synchronizable &&
           (!accessible || *accessible == item.accessible) &&
           (!accessControl || *accessControl == item.accessControl);
}

}  // namespace platform
