#include "tools/conformance/Judge.hpp"
#include "tools/conformance/NetworkScene.hpp"
#include "tools/conformance/TLSServer.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"

#include <algorithm>
#include <stdexcept>

namespace conformance
{
namespace
{

using boost::json::object;

constexpr std::string_view address = "https://account.test/v2/account";

void requireAccepted(const Answer& answer)
{
    require(answer.status == 200 && answer.body() == "ok", "the response of the server",
            answer.description());
}

/// A refused server gets nothing but what belongs to the making of a connection.
void requireRefused(const Answer& answer, const ScriptedServer& server, bool isSecure)
{
    require(answer.error == "tls", "the error tls", answer.description());
    require(server.waitForOpen(0), "the end of the connection", "an open one");
    for (const std::string& bytes : server.received())
    {
        const bool told = bytes.find(bearer) != bytes.npos || bytes.find("/v2/") != bytes.npos;
        require(isSecure ? bytes.empty() : !told, "no byte of the request", shown(bytes));
    }
}

/// A server without TLS answers whatever it is sent.
ScriptedServer::Script scriptOf(bool isSecure)
{
    if (isSecure)
        return ScriptedServer::answering(ScriptedServer::ok("ok"));
    return [](ScriptedServer::Connection& connection)
    { connection.send(ScriptedServer::ok("ok")); };
}

void judgeCall(const object& record, const object& meta)
{
    const TLSServer tls(record, meta);
    const bool isSecure = tls.context() != nullptr;
    ScriptedServer server(scriptOf(isSecure), tls.context());
    if (isSecure && !isUsable(server.port()))
        throw std::runtime_error("nobody can talk to this server");

    platform::CurlURLSession session(
        {.timeLimit = callLimit,
         .bodyLimit = bodyLimit,
         .trustedAuthority = tls.trusted(),
         .hostAddresses = {{"account.test", "127.0.0.1:" + std::to_string(server.port())}}});
    const Answer answer = call(session, address);
    requireOrder(answer);

    const auto expected = textOf(record, "expect");
    if (expected != "accept" && expected != "refuse" && expected != "either")
        throw std::invalid_argument("there is no code for this expectation");
    if (expected == "accept" || (expected == "either" && answer.error.empty()))
        requireAccepted(answer);
    else
        requireRefused(answer, server, isSecure);
}

Verdict judgeTLS(const object& record, const object& meta)
{
    const NetworkScene scene;
    return verdictOf(
        [&]
        {
            judgeCall(record, meta);
            require(scene.isUntouched(), "nothing stored", "a file");
        });
}

constexpr Judge judges[] = {{"tls_cases.json", nameFromID, judgeTLS}};

}  // namespace

std::span<const Judge> tlsJudges()
{
    return judges;
}

}  // namespace conformance
