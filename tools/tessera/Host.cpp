#include "tools/tessera/Host.hpp"

#include "Tessera/Model/AccountError.hpp"
#include "tools/environment/EnvironmentFile.hpp"

namespace commandline
{
namespace
{

using tessera::AccountEnvironment;

AccountEnvironment preset(const std::string& name)
{
    if (name == "appleProduction")
        return AccountEnvironment::appleProduction();
    if (name == "directPreview")
        return AccountEnvironment::directPreview();
    if (name == "applePreview")
        return AccountEnvironment::applePreview();
    return AccountEnvironment::directProduction();
}

tools::EnvironmentFile environmentOf(const Command& command)
{
    if (command.environmentFile.empty())
        return {preset(command.preset), std::nullopt};
    return tools::readEnvironmentFile(command.environmentFile);
}

tessera::AccountClient client(const std::string& identifier)
{
    return {.identifier = identifier,
            .localizedName = "Tessera",
            .localizedKeychainIdentifier = "Tessera",
            .localizedShortName = "Tessera",
            .imageName = "",
            .version = TESSERA_VERSION,
            .releaseChannel = tessera::AccountReleaseChannel::public_,
            .device = tessera::AccountDevice::current()};
}

}  // namespace

Host::Host(const Command& command, Interrupts& interrupts)
    : interrupts_(interrupts), client_(client(command.clientIdentifier))
{
    auto environment = environmentOf(command);
    serverName_ = environment.environment.endpointURL.host();
    decoder_.setSignatureVerificationStrategy(environment.environment.jwtPublicKey);
    auto configuration = environment.sessionConfiguration();
    configuration.timeLimit = command.timeLimit;
    session_ = std::make_shared<platform::CurlURLSession>(std::move(configuration));
    service_ = std::make_unique<tessera::AccountService>(std::move(environment.environment),
                                                         client_, session_);
}

Host::~Host()
{
    // Whoever still holds the session, its thread must not outlive `main`.
    session_->shutdown();
}

TokenJWT Host::verifiedToken(const platform::SecretString& token)
{
    return decoder_.decode<tessera::AccountToken>(token.bytes());
}

void Host::authenticate(const TokenJWT& token)
{
    await(service_->authenticate(token.string));
}

tessera::AccountInfo Host::info()
{
    const auto text = await(service_->info());
    auto info = decoder_.decode<tessera::AccountInfo>(text.bytes()).payload;
    if (info.audience != client_.audience())
        throw tessera::AccountError(tessera::AccountError::audienceMismatch);
    return info;
}

}  // namespace commandline
