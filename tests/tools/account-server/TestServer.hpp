#pragma once

#include "Platform/Networking/URLResponse.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tools/account-server/Server.hpp"

#include <boost/json/value.hpp>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace accountserver
{

struct Call
{
    std::string method;
    std::string path;
    std::string body;
    std::string token;
    std::vector<std::string> headers;  ///< added, or put in place of the usual ones
};

struct Reply
{
    bool failed = false;  ///< there is no answer
    int status = 0;
    std::string body = {};
    platform::HTTPFields headers = {};

    std::string code() const;  ///< of the error body
    boost::json::value json() const;
};

constexpr auto userAgent = "Editor/7.2-beta Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Direct)";

/// A server in this process, on ports of its own, and a client that trusts its authority.
class TestServer
{
public:
    explicit TestServer(const std::filesystem::path& state);
    explicit TestServer(Settings settings);
    ~TestServer();

    static Settings settings(const std::filesystem::path& state);

    /// One request on a connection of its own.
    Reply call(const Call& call) const;
    /// To the control interface. Fails the test unless the status is 200 or 204.
    Reply control(const std::string& what, const std::string& body = "") const;
    Reply bareControl(const Call& call) const;

    void requestCode(const std::string& email) const;
    std::string newestCode(const std::string& email) const;
    Reply signIn(const std::string& email, const std::string& code,
                 const std::string& token = "") const;
    /// The token of a new session.
    std::string signedIn(const std::string& email) const;
    void advance(double seconds) const;

    std::string address() const;
    std::string authority() const;
    boost::json::value environment() const;
    void stop();

    std::unique_ptr<Server> server;

private:
    Settings settings_;
    std::thread thread_;
};

/// The payload of a token, after its signature was checked with the key of the environment file.
boost::json::value verifiedPayload(const std::string& token, const boost::json::value& environment);

}  // namespace accountserver
