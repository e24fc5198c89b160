#pragma once

#include "Platform/Networking/URL.hpp"
#include "Tessera/Tokens/JWTPublicKey.hpp"

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

#include <array>
#include <string>

namespace tessera
{

/// One deployment of the account server: where it is, and the key that its tokens verify with.
///
/// A host takes one of the four presets; their addresses and keys are fixed when the library is
/// built (see `Deployment.hpp`). Tools and tests fill in one of their own.
struct AccountEnvironment
{
    /// How the host application reaches its users: sold directly, or through the app store.
    enum class Distribution
    {
        direct,
        apple
    };
    /// Whose server it is: a developer's own, the one for tests before a release, the users'.
    enum class Server
    {
        local,
        preview,
        production
    };

    Distribution distribution = Distribution::direct;
    Server server = Server::local;
    std::string localizedName;
    /// Keeps the keychain items of different environments apart; must not be empty.
    std::string localizedKeychainIdentifier;
    JWTPublicKey jwtPublicKey;
    /// The base address of the API; request paths replace its path.
    platform::URL endpointURL;
    /// The web page where the user manages the account.
    platform::URL accountURL;
    /// The public web site.
    platform::URL marketingURL;

    /// The presets. Each is built on first use; an address in the deployment's settings that does
    /// not parse is a programming error and stops the process.
    static const AccountEnvironment& directProduction();
    static const AccountEnvironment& appleProduction();
    static const AccountEnvironment& directPreview();
    static const AccountEnvironment& applePreview();

    bool operator==(const AccountEnvironment&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountEnvironment, (),
                      (distribution, server, localizedName, localizedKeychainIdentifier,
                       jwtPublicKey, endpointURL, accountURL, marketingURL))
BOOST_DESCRIBE_ENUM(AccountEnvironment::Distribution, direct, apple)
BOOST_DESCRIBE_ENUM(AccountEnvironment::Server, local, preview, production)

constexpr auto jsonKeys(const AccountEnvironment::Distribution*)
{
    return std::array{platform::JSONKey{"direct", "Direct"}, platform::JSONKey{"apple", "Apple"}};
}

}  // namespace tessera
