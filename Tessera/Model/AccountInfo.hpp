#pragma once

#include "Platform/Basics/Date.hpp"
#include "Platform/Security/SecretCoding.hpp"
#include "Tessera/Model/AccountTerms.hpp"

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_hash.hpp>

#include <optional>
#include <string>

namespace tessera
{

/// Whether account information is recent enough to rely on. (One final "s", on purpose.)
enum class AccountInfoFreshnes
{
    fresh,
    stale
};

/// What the server says about the account, signed.
struct AccountInfo
{
    platform::Date issuedAt;
    /// Which client application it is for; see `AccountClient::audience`.
    std::string audience;
    std::string user;
    std::optional<boost::uuids::uuid> uuid;
    /// Kept out of logs and core dumps; `email->view()` shows it.
    std::optional<platform::SecretString> email;
    AccountTerms terms;

    /// An account without an e-mail address. An empty address is an address.
    bool isAnonymous() const { return !email; }

    /// Fresh until six hours after its issue, to the second; information from the future is fresh.
    AccountInfoFreshnes freshness() const;
    AccountInfoFreshnes freshness(platform::Date now) const;

    bool operator==(const AccountInfo&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountInfo, (), (issuedAt, audience, user, uuid, email, terms))

constexpr auto jsonKeys(const AccountInfo*)
{
    return std::array{platform::JSONKey{"issuedAt", "iat"}, platform::JSONKey{"audience", "aud"}};
}

}  // namespace tessera
