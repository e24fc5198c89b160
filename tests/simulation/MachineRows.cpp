#include "tests/simulation/MachineRows.hpp"

#include "Platform/Coding/JSONKeys.hpp"

#include <array>
#include <unordered_map>

namespace simulation
{
namespace
{

/// Every row that can be reached.
constexpr std::array reachable{
    "launch, loading",
};

struct Table
{
    Table()
    {
        for (const auto* row : reachable)
            add(row);
    }

    std::size_t add(const std::string& row)
    {
        names.push_back(row);
        times.push_back(0);
        return places[row] = names.size() - 1;
    }

    std::vector<std::string> names;
    std::vector<std::uint64_t> times;
    std::unordered_map<std::string, std::size_t> places;
};

Table& table()
{
    static auto& made = *new Table;
    return made;
}

}  // namespace

void rowReached(const std::string& row)
{
    auto& all = table();
    const auto found = all.places.find(row);
    ++all.times.at(found == all.places.end() ? all.add(row) : found->second);
}

const std::vector<std::string>& rows()
{
    return table().names;
}

void takeRows(std::span<std::uint64_t> times)
{
    auto& all = table();
    for (std::size_t row = 0; row < all.times.size() && row < times.size(); ++row)
        times[row] += std::exchange(all.times[row], 0);
}

std::string situation(const tessera::AccountState& state)
{
    constexpr std::array names{"loading", "failed", "pending", "signedIn", "signedOut"};
    return names.at(state.value().index());
}

std::string situation(const tessera::AccountState& state,
                      const tessera::AccountRefreshStatus& status)
{
    using Status = tessera::AccountRefreshStatus;
    const char* name = status.is<Status::Completed>() ? ", completed" : ", failed";
    if (status.is<Status::Pending>())
        name = ", not refreshed";
    if (status.is<Status::Refreshing>())
        name = ", refreshing";
    return situation(state) + name;
}

std::string nameOf(tessera::AccountTransitionCause cause)
{
    return std::string(platform::rawValue(cause));
}

}  // namespace simulation
