#include "tests/tools/account-server/TestServer.hpp"

#include "Platform/Coding/Base64.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"
#include "tests/support/SecretText.hpp"
#include "tools/account-server/Files.hpp"
#include "tools/account-server/Mailer.hpp"
#include "tools/environment/EnvironmentFile.hpp"

#include <gtest/gtest.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <future>

namespace
{

/// A payload that is looked at elsewhere.
struct Anything
{};

}  // namespace

template <>
struct platform::JSONCoding<Anything>
{
    static Anything decode(const JSONReader&) { return {}; }
};

namespace accountserver
{
namespace json = boost::json;

namespace
{

Reply perform(const std::string& address, const Call& call, const std::string& authority)
{
    platform::URLRequest request{.url = *platform::URL::parse(address + call.path.substr(1)),
                                 .method = call.method};
    request.setHeader("Content-Type", "application/json");
    request.setHeader("User-Agent", userAgent);
    if (!call.token.empty())
        request.setHeader("Authorization", "Bearer " + call.token);
    for (const auto& line : call.headers)
    {
        const auto colon = line.find(": ");
        request.setHeader(line.substr(0, colon), line.substr(colon + 2));
    }
    if (!call.body.empty())
        request.body = bytes(call.body);

    std::promise<platform::URLCompletion> ended;
    platform::CurlURLSession session({.trustedAuthority = authority});
    session
        .dataTask(std::move(request), [&ended](platform::URLCompletion completion)
                  { ended.set_value(std::move(completion)); })
        ->resume();
    const auto completion = ended.get_future().get();
    if (completion.error)
        return {.failed = true};
    return {.status = platform::httpStatusCode(*completion.response),
            .body = ::text(*completion.body),
            .headers = completion.response->headers};
}

}  // namespace

std::string Reply::code() const
{
    boost::system::error_code failure;
    const auto value = json::parse(body, failure);
    if (failure || !value.is_object() || !value.as_object().contains("message"))
        return "no error body: " + body;
    return std::string(value.at("code").as_string());
}

json::value Reply::json() const
{
    return json::parse(body);
}

TestServer::TestServer(const std::filesystem::path& state) : TestServer(settings(state)) {}

TestServer::TestServer(Settings settings)
    : server(std::make_unique<Server>(settings)),
      settings_(std::move(settings)),
      thread_([this] { server->run(); })
{}

TestServer::~TestServer()
{
    stop();
}

void TestServer::stop()
{
    if (!thread_.joinable())
        return;
    server->stop();
    thread_.join();
}

Settings TestServer::settings(const std::filesystem::path& state)
{
    Settings settings;
    settings.state = state;
    settings.port = 0;
    settings.controlPort = 0;
    settings.printMail = false;
    settings.logRequests = false;
    return settings;
}

Reply TestServer::call(const Call& call) const
{
    return perform(address(), call, authority());
}

Reply TestServer::bareControl(const Call& call) const
{
    const auto address = "http://127.0.0.1:" + std::to_string(*server->controlPort()) + "/";
    return perform(address, call, authority());
}

Reply TestServer::control(const std::string& what, const std::string& body) const
{
    const auto space = what.find(' ');
    auto reply =
        bareControl({what.substr(0, space), what.substr(space + 1), body, "", {"X-Control: 1"}});
    EXPECT_TRUE(reply.status == 200 || reply.status == 204) << what << " " << reply.body;
    return reply;
}

void TestServer::requestCode(const std::string& email) const
{
    const auto body = json::serialize(json::object{{"email", email}});
    EXPECT_EQ(call({"POST", "/v2/auth/one-time-code", body, "", {}}).status, 204);
}

std::string TestServer::newestCode(const std::string& email) const
{
    return accountserver::newestCode(settings_.state, email).value_or("none");
}

Reply TestServer::signIn(const std::string& email, const std::string& code,
                         const std::string& token) const
{
    const auto body = json::serialize(json::object{{"email", email}, {"oneTimeCode", code}});
    return call({"POST", "/v2/auth", body, token, {"Accept: application/jwt"}});
}

std::string TestServer::signedIn(const std::string& email) const
{
    requestCode(email);
    auto reply = signIn(email, newestCode(email));
    EXPECT_EQ(reply.status, 200) << reply.body;
    return reply.body;
}

void TestServer::advance(double seconds) const
{
    control("POST /clock", json::serialize(json::object{{"advance", seconds}}));
}

std::string TestServer::address() const
{
    return "https://localhost:" + std::to_string(server->port()) + "/";
}

std::string TestServer::authority() const
{
    return std::string(environment().at("authority").as_string());
}

json::value TestServer::environment() const
{
    return json::parse(readFile(settings_.state / "environment.json").value());
}

json::value verifiedPayload(const std::string& token, const json::value& environment)
{
    tessera::JWTDecoder decoder;
    decoder.setSignatureVerificationStrategy(
        tools::parseEnvironment(json::serialize(environment)).environment.jwtPublicKey);
    decoder.decode<Anything>(std::as_bytes(std::span(token)));
    const auto first = token.find('.') + 1;
    const auto payload =
        platform::decodeBase64URL(token.substr(first, token.rfind('.') - first)).value();
    return json::parse({reinterpret_cast<const char*>(payload.data()), payload.size()});
}

}  // namespace accountserver
