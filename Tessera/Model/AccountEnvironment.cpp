#include "Tessera/Model/AccountEnvironment.hpp"

#include "Platform/Basics/Fatal.hpp"

#include TESSERA_DEPLOYMENT_HEADER

namespace tessera
{
namespace
{

using Distribution = AccountEnvironment::Distribution;
using Server = AccountEnvironment::Server;

platform::URL presetURL(std::string_view text)
{
    auto url = platform::URL::parse(text);
    if (!url)
        platform::fatal("An address of an environment preset does not parse: " + std::string(text));
    return *url;
}

AccountEnvironment preset(Distribution distribution, Server server)
{
    const bool isProduction = server == Server::production;
    const auto& settings = isProduction ? deployment::production : deployment::preview;
    const char* name = isProduction ? "Ostra Account" : "Ostra Account Preview";
    return {.distribution = distribution,
            .server = server,
            .localizedName = name,
            .localizedKeychainIdentifier = name,
            .jwtPublicKey = {JWTPublicKeyAlgorithm::RS256, std::string(settings.publicKey)},
            .endpointURL = presetURL(settings.endpointURL),
            .accountURL = presetURL(settings.accountURL),
            .marketingURL = presetURL(settings.marketingURL)};
}

}  // namespace

// Never torn down: a host's static objects may read a preset while the process ends.

const AccountEnvironment& AccountEnvironment::directProduction()
{
    static const auto& environment =
        *new AccountEnvironment(preset(Distribution::direct, Server::production));
    return environment;
}

const AccountEnvironment& AccountEnvironment::appleProduction()
{
    static const auto& environment =
        *new AccountEnvironment(preset(Distribution::apple, Server::production));
    return environment;
}

const AccountEnvironment& AccountEnvironment::directPreview()
{
    static const auto& environment =
        *new AccountEnvironment(preset(Distribution::direct, Server::preview));
    return environment;
}

const AccountEnvironment& AccountEnvironment::applePreview()
{
    static const auto& environment =
        *new AccountEnvironment(preset(Distribution::apple, Server::preview));
    return environment;
}

}  // namespace tessera
