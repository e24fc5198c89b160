#pragma once

#include "Platform/Networking/CurlURLSession.hpp"
#include "Tessera/API/AccountService.hpp"
#include "Tessera/Model/AccountInfo.hpp"
#include "Tessera/Model/AccountToken.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"
#include "tools/tessera/Command.hpp"
#include "tools/tessera/Waiting.hpp"

#include <memory>
#include <string>

namespace commandline
{

using TokenJWT = tessera::JWT<tessera::JWTHeader, tessera::AccountToken>;

/// What makes this program a host of the framework: who it is, whom it talks to, and its rule that
/// nothing which a server signed is believed before it was verified.
///
/// All calls are made from the main thread and return when the answer is there; they throw what the
/// service and the decoder throw.
class Host
{
public:
    /// Throws `tools::EnvironmentFileError`.
    Host(const Command& command, Interrupts& interrupts);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    tessera::AccountService& service() { return *service_; }

    /// Runs a call of the service.
    template <class T>
    T await(platform::Awaitable<T> call)
    {
        return outcome<T>(std::move(call)).get();
    }

    /// The same for a call whose failure is no failure of the command.
    template <class T>
    platform::Outcome<T> outcome(platform::Awaitable<T> call)
    {
        return outcomeOf<T>(loop_, interrupts_, "Waiting for " + serverName_, std::move(call));
    }

    /// A session token whose signature is that of this environment's server.
    TokenJWT verifiedToken(const platform::SecretString& token);

    /// Makes the service use this token.
    void authenticate(const TokenJWT& token);

    /// Fetches the account information of that token: verified, and signed for this program.
    tessera::AccountInfo info();

private:
    Interrupts& interrupts_;
    std::string serverName_;
    tessera::AccountClient client_;
    tessera::JWTDecoder decoder_;
    std::shared_ptr<platform::RunLoop> loop_ = std::make_shared<platform::RunLoop>();
    std::shared_ptr<platform::CurlURLSession> session_;
    std::unique_ptr<tessera::AccountService> service_;
};

}  // namespace commandline
