#pragma once

#include <Platform/Coding/JSONDecoder.hpp>
#include <Platform/Networking/CurlURLSession.hpp>
#include <Platform/Services/Services.hpp>
#include <Tessera/Model/AccountEnvironment.hpp>

#include <boost/describe/class.hpp>

#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

/// What the development server writes when it starts, see its `--environment-file`.
struct EnvironmentFile
{
    std::string localizedName;
    std::string localizedKeychainIdentifier;
    tessera::JWTPublicKey jwtPublicKey;
    std::string endpointURL;
    std::string accountURL;
    std::string marketingURL;
    std::string authority;
};
BOOST_DESCRIBE_STRUCT(EnvironmentFile, (),
                      (localizedName, localizedKeychainIdentifier, jwtPublicKey, endpointURL,
                       accountURL, marketingURL, authority))

/// A development server in place of the deployment's own: where it is, and a URL session that
/// trusts its certificate. To be made before the account and destroyed after it.
class DevelopmentServer
{
public:
    /// Reads the environment file that the command line names.
    DevelopmentServer(int argc, char** argv)
    {
        if (argc != 3)
            throw std::runtime_error("usage: minimal ENVIRONMENT.json EMAIL");
        std::ifstream in(argv[1]);
        const std::string json{std::istreambuf_iterator<char>(in), {}};
        if (!in)
            throw std::runtime_error(std::string("Cannot read ") + argv[1] + ".");
        file_ = platform::JSONDecoder().decode<EnvironmentFile>(json);
        session_ = std::make_shared<platform::CurlURLSession>(
            platform::CurlURLSession::Configuration{.trustedAuthority = file_.authority});
    }

    /// The thread of a session must not outlive `main`.
    ~DevelopmentServer() { session_->shutdown(); }
    DevelopmentServer(const DevelopmentServer&) = delete;
    DevelopmentServer& operator=(const DevelopmentServer&) = delete;

    platform::Services services() const
    {
        auto services = platform::systemServices();
        services.urlSession = session_;
        return services;
    }

    tessera::AccountEnvironment environment() const
    {
        return {.distribution = tessera::AccountEnvironment::Distribution::direct,
                .server = tessera::AccountEnvironment::Server::local,
                .localizedName = file_.localizedName,
                .localizedKeychainIdentifier = file_.localizedKeychainIdentifier,
                .jwtPublicKey = file_.jwtPublicKey,
                .endpointURL = address(file_.endpointURL),
                .accountURL = address(file_.accountURL),
                .marketingURL = address(file_.marketingURL)};
    }

private:
    static platform::URL address(const std::string& text)
    {
        const auto url = platform::URL::parse(text);
        if (!url)
            throw std::runtime_error(text + " is not an address.");
        return *url;
    }

    EnvironmentFile file_;
    std::shared_ptr<platform::CurlURLSession> session_;
};
