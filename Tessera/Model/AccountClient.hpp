#pragma once

#include "Tessera/Model/AccountDevice.hpp"
#include "Tessera/Model/AccountEnvironment.hpp"
#include "Tessera/Model/AccountReleaseChannel.hpp"

#include <string>

namespace tessera
{

/// The host application that uses the account.
struct AccountClient
{
    /// Short, and the stem of the audience: "editor".
    std::string identifier = {};
    std::string localizedName = {};
    /// Names the client's own keychain items; must not be empty.
    std::string localizedKeychainIdentifier = {};
    std::string localizedShortName = {};
    std::string imageName = {};
    /// The application's version: "7.2". Must not be empty, since the server refuses a user agent
    /// without one.
    std::string version = {};
    AccountReleaseChannel releaseChannel = AccountReleaseChannel::public_;
    AccountDevice device;

    /// The audience that account information for this client must carry: the identifier, ".", and
    /// "iphone" or "ipad" for models that begin with "iPhone" or "iPad", "mac" for all others.
    std::string audience() const;

    /// What every request says in its User-Agent header:
    /// "Editor/7.2-beta Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Direct)".
    std::string userAgent(AccountEnvironment::Distribution distribution) const;

    bool operator==(const AccountClient&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountClient, (),
                      (identifier, localizedName, localizedKeychainIdentifier, localizedShortName,
                       imageName, version, releaseChannel, device))

}  // namespace tessera
