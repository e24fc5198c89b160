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
    "activation, failed, failed: refresh",
    "activation, failed, refreshing: nothing",
    "activation, loading, not refreshed: refresh",
    "activation, loading, refreshing: nothing",
    "activation, pending, completed: nothing",
    "activation, pending, failed: refresh",
    "activation, pending, not refreshed: refresh",
    "activation, pending, refreshing: nothing",
    "activation, signedIn, completed: nothing",
    "activation, signedIn, completed: refresh",
    "activation, signedIn, failed: refresh",
    "activation, signedIn, not refreshed: refresh",
    "activation, signedIn, refreshing: nothing",
    "activation, signedOut, completed: nothing",
    "activation, signedOut, not refreshed: nothing",
    "activation, signedOut, refreshing: nothing",
    "activation, signing in",
    "another token is stored, failed",
    "another token is stored, loading",
    "another token is stored, pending",
    "another token is stored, signedIn",
    "another token is stored, signedOut",
    "following begins, failed",
    "following begins, loading",
    "following begins, pending",
    "following begins, signedIn",
    "following begins, signedOut",
    "forced refresh, failed: start",
    "forced refresh, loading: start",
    "forced refresh, pending: start",
    "forced refresh, refreshing",
    "forced refresh, signedIn: start",
    "forced refresh, signedOut: start",
    "forced refresh, signing in",
    "launch or refresh, failed",
    "launch or refresh, loading",
    "launch or refresh, pending",
    "launch or refresh, signedIn",
    "launch or refresh, signedOut",
    "no token is stored, failed",
    "no token is stored, loading",
    "no token is stored, pending",
    "no token is stored, signedIn",
    "no token is stored, signedOut",
    "read another user's, otherProgramSignedIn",
    "read another user's, restored",
    "read bad information, otherProgramSignedIn",
    "read bad information, restored",
    "read both, otherProgramSignedIn",
    "read both, restored",
    "read no information, otherProgramSignedIn",
    "read no information, restored",
    "read nothing, otherProgramSignedIn",
    "read nothing, restored",
    "refresh cancelled, loading",
    "refresh failed, pending",
    "refresh failed, signedIn",
    "refresh failed, signedOut",
    "refresh refused, pending",
    "refresh refused, signedIn",
    "refresh without a keychain, failed",
    "refresh without a keychain, loading",
    "refresh without a keychain, pending",
    "refresh without a keychain, signedIn",
    "refresh without a keychain, signedOut",
    "refresh, failed: start",
    "refresh, loading: start",
    "refresh, pending: start",
    "refresh, refreshing",
    "refresh, signedIn: not due",
    "refresh, signedIn: start",
    "refresh, signedOut: start",
    "refresh, signing in",
    "refreshed, pending",
    "refreshed, signedIn",
    "retry, failed",
    "retry, not called for",
    "sign-in begins, failed",
    "sign-in begins, loading",
    "sign-in begins, pending",
    "sign-in begins, signedIn",
    "sign-in begins, signedOut",
    "sign-in cancelled, failed",
    "sign-in cancelled, loading",
    "sign-in cancelled, pending",
    "sign-in cancelled, signedIn",
    "sign-in cancelled, signedOut",
    "sign-out begins, failed",
    "sign-out begins, loading",
    "sign-out begins, pending",
    "sign-out begins, signedIn",
    "sign-out begins, signedOut",
    "signed in without information, failed",
    "signed in without information, loading",
    "signed in without information, pending",
    "signed in without information, signedIn",
    "signed in without information, signedOut",
    "signed in, failed",
    "signed in, loading",
    "signed in, pending",
    "signed in, signedIn",
    "signed in, signedOut",
    "signed out elsewhere, failed",
    "signed out elsewhere, loading",
    "signed out elsewhere, pending",
    "signed out elsewhere, signedIn",
    "signed out elsewhere, signedOut",
    "signed out, deauthenticated",
    "signed out, deleted",
    "signed out, otherUsersInfo",
    "signed out, signedOut",
    "the known token is stored, failed",
    "the known token is stored, loading",
    "the known token is stored, pending",
    "the known token is stored, signedIn",
    "the known token is stored, signedOut",
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
