#include "Platform/Networking/CurlURLSession.hpp"
#include "tests/Platform/Networking/Call.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"
#include "tools/scripted-server/TestCertificate.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <openssl/ssl.h>

using namespace platform;

namespace
{

/// An environment variable, for as long as it lives.
class Variable
{
public:
    Variable(const char* name, const std::string& value) : name_(name)
    {
        setenv(name, value.c_str(), 1);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { unsetenv(name_); }

private:
    const char* name_;
};

CurlURLSession::Configuration trusting(const TestCertificate& certificate)
{
    CurlURLSession::Configuration configuration;
    configuration.trustedAuthority = certificate.pem();
    return configuration;
}

}  // namespace

TEST(CurlSecurity, TrustsTheConfiguredAuthorityAndNoOther)
{
    TestCertificate certificate;
    TestCertificate other;
    ScriptedServer server(ScriptedServer::answering(ScriptedServer::ok("secret")), certificate);
    const std::string port = std::to_string(server.port());
    struct Case
    {
        CurlURLSession::Configuration configuration;
        std::string address;
        std::string expected;
    };
    auto mapped = trusting(certificate);
    mapped.hostAddresses = {{"account.test", "127.0.0.1"},
                            {"other.test", "127.0.0.1"},
                            {"else.test", "127.0.0.1:" + port}};
    const Case cases[] = {
        {trusting(certificate), server.address(), ""},
        {trusting(certificate), "https://localhost:" + port + "/", ""},
        {mapped, "https://account.test:" + port + "/", ""},
        {mapped, "https://other.test:" + port + "/", "URLError.tls"},
        {mapped, "https://else.test/", "URLError.tls"},
        {trusting(other), server.address(), "URLError.tls"},
        {{}, server.address(), "URLError.tls"},
    };
    std::size_t accepted = 0;
    for (const Case& each : cases)
    {
        CurlURLSession session(each.configuration);
        const auto completion = call(session, requestTo(each.address));
        EXPECT_EQ(errorOf(completion), each.expected) << each.address;
        accepted += completion.error ? 0 : 1;
    }
    EXPECT_EQ(server.requests().size(), accepted);
}

TEST(CurlSecurity, SendsNothingToAServerWithoutTLSOrWithAnOldOne)
{
    ScriptedServer plain([](ScriptedServer::Connection& connection)
                         { connection.send("HTTP/1.1 400 No\r\nContent-Length: 0\r\n\r\n"); });
    TestCertificate certificate;
    SSL_CTX_set_max_proto_version(certificate.context(), TLS1_1_VERSION);
    SSL_CTX_set_security_level(certificate.context(), 0);
    ScriptedServer old(ScriptedServer::answering(ScriptedServer::ok("")), certificate);
    CurlURLSession session(trusting(certificate));

    const std::string port = std::to_string(plain.port());
    EXPECT_EQ(errorOf(call(session, requestTo("https://127.0.0.1:" + port + "/"))), "URLError.tls");
    EXPECT_EQ(errorOf(call(session, requestTo(old.address()))), "URLError.tls");
    EXPECT_TRUE(plain.requests().empty() && old.requests().empty());
}

TEST(CurlSecurity, WritesNoKeysAndNothingElseToDisk)
{
    TemporaryFolder folder;
    const auto keys = folder.path() / "keys";
    const Variable keyLog("SSLKEYLOGFILE", keys.string());
    const Variable home("HOME", folder.path().string());
    TestCertificate certificate;
    ScriptedServer server(
        ScriptedServer::answering("HTTP/1.1 200 OK\r\nSet-Cookie: a=b\r\nContent-Length: 0\r\n"
                                  "Strict-Transport-Security: max-age=9999\r\n"
                                  "Alt-Svc: h2=\"other:1\"\r\nCache-Control: max-age=999\r\n\r\n"),
        certificate);
    {
        CurlURLSession session(trusting(certificate));
        ASSERT_EQ(errorOf(call(session, requestTo(server.address()))), "");
    }

    // The library may create the file, when it is the first to be asked; it writes nothing to it.
    for (const auto& file : std::filesystem::directory_iterator(folder.path()))
    {
        EXPECT_EQ(file.path(), keys);
        EXPECT_EQ(file.file_size(), 0U);
    }
}

TEST(CurlSecurity, UsesTheProxyOfTheEnvironmentButNeverForThisMachine)
{
    ScriptedServer proxy(
        [](ScriptedServer::Connection& connection)
        {
            connection.readHead();
            connection.send("HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n");
        });
    ScriptedServer local(ScriptedServer::answering(ScriptedServer::ok("direct")));
    const Variable https("https_proxy", proxy.address(""));
    const Variable all("http_proxy", proxy.address(""));
    const Variable exceptions("no_proxy", "direct.invalid");
    CurlURLSession session;
    URLRequest outside = requestTo("https://account.invalid/");
    outside.addHeader("Authorization", SecretString("Bearer token"));

    EXPECT_EQ(errorOf(call(session, outside)), "URLError.proxy");
    EXPECT_EQ(textOf(*call(session, requestTo(local.address())).body), "direct");
    EXPECT_EQ(errorOf(call(session, requestTo("https://direct.invalid/"))),
              "URLError.nameNotFound");

    ASSERT_EQ(proxy.requests().size(), 1U);
    EXPECT_TRUE(proxy.requests().front().starts_with("CONNECT account.invalid:443 "));
    EXPECT_EQ(proxy.requests().front().find("token"), std::string::npos);
}
