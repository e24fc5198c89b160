#include "Tessera/Model/AccountState.hpp"

#include <boost/container_hash/hash.hpp>

namespace tessera
{

std::optional<platform::SecretString> AccountState::token() const
{
    if (const auto* profile = get<AccountProfile>())
        return profile->token();
    if (const auto* profile = get<AccountPendingProfile>())
        return profile->token();
    return std::nullopt;
}

std::optional<boost::uuids::uuid> AccountState::uuid() const
{
    const auto* profile = get<AccountProfile>();
    return profile ? profile->info().uuid : std::nullopt;
}

std::size_t hash_value(const AccountState& state)
{
    std::size_t seed = 0;
    boost::hash_combine(seed, state.value_.index());
    if (const auto* failed = state.get<AccountState::Failed>())
        boost::hash_combine(seed, failed->errorMessage);
    if (const auto* pending = state.get<AccountPendingProfile>())
        boost::hash_combine(seed, *pending);
    if (const auto* profile = state.get<AccountProfile>())
        boost::hash_combine(seed, *profile);
    return seed;
}

}  // namespace tessera
