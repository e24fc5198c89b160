#pragma once

#include "Platform/Coding/JSONKeys.hpp"

#include <boost/describe/enum.hpp>

#include <string>
#include <string_view>

namespace tessera
{

/// How mature a release of the host application is. `platform::rawValue` gives "private", "alpha",
/// "beta" or "public".
enum class AccountReleaseChannel
{
    private_,
    alpha,
    beta,
    public_
};
BOOST_DESCRIBE_ENUM(AccountReleaseChannel, private_, alpha, beta, public_)

/// What follows the version in the user agent. The private channel shares the suffix of alpha, on
/// purpose: the server treats both alike.
std::string_view userAgentString(AccountReleaseChannel channel);

/// The channel's name in the user's language.
std::string localizedTitle(AccountReleaseChannel channel);

}  // namespace tessera
