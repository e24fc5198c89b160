#pragma once

#include "Tessera/Model/AccountInfo.hpp"
#include "Tessera/Model/AccountToken.hpp"
#include "Tessera/Tokens/JWT.hpp"

#include <optional>
#include <string>

namespace tessera
{

enum class AccountProfileSource
{
    /// Restored from the keychain.
    local,
    /// Received from the server in this run.
    remote
};

using AccountTokenJWT = JWT<JWTHeader, AccountToken>;
using AccountInfoJWT = JWT<JWTHeader, AccountInfo>;

/// A session with verified account information.
struct AccountProfile
{
    AccountTokenJWT tokenJWT;
    AccountInfoJWT infoJWT;
    AccountProfileSource source = AccountProfileSource::local;

    /// The session token as the server wants it.
    const platform::SecretString& token() const { return tokenJWT.string; }
    const AccountInfo& info() const { return infoJWT.payload; }

    bool operator==(const AccountProfile&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountProfile, (), (tokenJWT, infoJWT, source))

/// A session whose token is good, but whose account information could not be had yet.
struct AccountPendingProfile
{
    AccountTokenJWT tokenJWT;
    /// Why, in the user's language; nothing while no attempt has failed.
    std::optional<std::string> infoErrorMessage;

    const platform::SecretString& token() const { return tokenJWT.string; }

    bool operator==(const AccountPendingProfile&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountPendingProfile, (), (tokenJWT, infoErrorMessage))

}  // namespace tessera
