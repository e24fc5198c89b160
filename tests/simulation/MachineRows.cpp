#include "tests/simulation/MachineRows.hpp"

#include "Platform/Coding/JSONKeys.hpp"

#include <array>
#include <unordered_map>

namespace simulation
{
namespace
{

/// The rows that can be reached: each of some inputs in each of some situations.
struct Rows
{
    std::vector<std::string> inputs;
    std::vector<std::string> situations;
};
const std::vector<Rows> reachable{
    {{"another token is stored", "following begins", "launch or refresh", "no token is stored",
      "refresh without a keychain", "sign-in begins", "sign-in cancelled", "sign-out begins",
      "signed in without information", "signed in", "signed out elsewhere",
      "the known token is stored"},
     {"failed", "loading", "pending", "signedIn", "signedOut"}},
    {{"activation"},
     {"failed, failed: refresh", "failed, refreshing: nothing", "loading, not refreshed: refresh",
      "loading, refreshing: nothing", "pending, completed: nothing", "pending, failed: refresh",
      "pending, not refreshed: refresh", "pending, refreshing: nothing",
      "signedIn, completed: nothing", "signedIn, completed: refresh", "signedIn, failed: refresh",
      "signedIn, not refreshed: refresh", "signedIn, refreshing: nothing",
      "signedOut, completed: nothing", "signedOut, not refreshed: nothing",
      "signedOut, refreshing: nothing", "signing in"}},
    {{"refresh", "forced refresh"},
     {"failed: start", "loading: start", "pending: start", "refreshing", "signedIn: start",
      "signedOut: start", "signing in"}},
    {{"refresh"}, {"signedIn: not due"}},
    {{"read another user's", "read bad information", "read both", "read no information",
      "read nothing"},
     {"otherProgramSignedIn", "restored"}},
    {{"refresh failed"}, {"pending", "signedIn", "signedOut"}},
    {{"refresh refused", "refreshed"}, {"pending", "signedIn"}},
    {{"retry"}, {"failed", "not called for"}},
    {{"signed out"}, {"deauthenticated", "deleted", "otherUsersInfo", "signedOut"}},
};

struct Table
{
    Table()
    {
        for (const auto& [inputs, situations] : reachable)
            for (const auto& input : inputs)
                for (const auto& situation : situations)
                    add(input + ", " + situation);
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
