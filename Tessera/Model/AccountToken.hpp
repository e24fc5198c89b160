#pragma once

#include "Platform/Coding/JSONDescribed.hpp"

#include <boost/container_hash/hash.hpp>
#include <boost/describe/class.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_hash.hpp>

#include <optional>
#include <string>

namespace tessera
{

/// What a session token says. The credential itself is the token's text (`JWT::string`).
struct AccountToken
{
    std::string user;
    std::optional<boost::uuids::uuid> uuid;
    std::string session;

    bool operator==(const AccountToken&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountToken, (), (user, uuid, session))

}  // namespace tessera
