#include "tools/account-server/Faults.hpp"

#include <algorithm>

namespace accountserver
{

std::optional<Fault> Faults::take(const std::string& path)
{
    const auto matches = [&](const Fault& fault)
    { return fault.path == "*" || fault.path == path; };
    const auto found = std::find_if(faults_.begin(), faults_.end(), matches);
    if (found == faults_.end())
        return std::nullopt;
    if (found->remaining && --*found->remaining > 0)
        return *found;
    auto fault = *found;
    if (found->remaining)
        faults_.erase(found);
    return fault;
}

std::size_t Faults::clear(const std::string& path)
{
    return std::erase_if(faults_,
                         [&](const Fault& fault) { return path.empty() || fault.path == path; });
}

}  // namespace accountserver
