#pragma once

#include "Platform/Coding/JSONKeys.hpp"

#include <boost/describe/enum.hpp>

#include <array>

namespace tessera
{

/// The version of the account API that this framework speaks; every request announces it.
enum class AccountAPIVersion
{
    rhubarb
};
BOOST_DESCRIBE_ENUM(AccountAPIVersion, rhubarb)

constexpr auto jsonKeys(const AccountAPIVersion*)
{
    return std::array{platform::JSONKey{"rhubarb", "2026-10-17-rhubarb"}};
}

}  // namespace tessera
