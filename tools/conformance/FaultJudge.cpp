#include "NetTasks/ResponseCheck.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "tools/conformance/FaultScript.hpp"
#include "tools/conformance/Judge.hpp"
#include "tools/conformance/NetworkScene.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/json/serialize.hpp>

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace conformance
{
namespace
{

using boost::json::array;
using boost::json::object;

/// How much a server can send that nobody reads: it lies in the buffers of the machine.
constexpr std::size_t machineBuffers = std::size_t{16} << 20;

/// The most memory that this process ever had.
std::size_t peakMemory()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

/// What a transport error may be when a case leaves it open.
constexpr std::string_view anyClass =
    "connectionRefused or nameNotFound or connectionLost or truncated or timeout or protocol or "
    "tooLarge";

bool isOneOf(std::string_view error, std::string_view classes)
{
    const std::string_view separator = " or ";
    std::string list(separator), entry(separator);
    list.append(classes).append(separator);
    entry.append(error).append(separator);
    return list.find(entry) != list.npos;
}

/// What the product's rule for statuses makes of a response.
std::string judgedByRule(const Answer& answer)
{
    try
    {
        nettasks::check<tessera::AccountRemoteError>(*answer.completion.body,
                                                     *answer.completion.response);
        return "accepted";
    }
    catch (const nettasks::AsyncURLSessionDataTaskDecodingError& error)
    {
        return "rejected with the text \"" + error.body() + "\"";
    }
    catch (const tessera::AccountRemoteError&)
    {
        return "rejected with an error record";
    }
}

void requireRule(const Answer& answer)
{
    constexpr int firstAccepted = 200, lastAccepted = 204;
    const bool accepted = *answer.status >= firstAccepted && *answer.status <= lastAccepted;
    const std::string expected =
        accepted ? "accepted" : "rejected with the text \"" + std::string(answer.body()) + "\"";
    const std::string found = judgedByRule(answer);
    require(found == expected, expected, found);
}

void requireResponse(const object& record, const Answer& answer)
{
    std::string expected = "status " + std::to_string(record.at("status").to_number<int>());
    bool agrees = *answer.status == record.at("status").to_number<int>();
    if (const auto* length = record.if_contains("bodyLength"))
    {
        const auto bytes = length->to_number<std::size_t>();
        expected += " with " + std::to_string(bytes) + " bytes";
        agrees = agrees && answer.body().size() == bytes;
    }
    require(agrees, expected, answer.description());
    require(answer.body().size() <= bodyLimit, "a body within the limit", answer.description());
    requireRule(answer);
}

void requireOutcome(const object& record, const Answer& answer)
{
    const auto outcome = textOf(record, "outcome");
    const bool mayRespond = outcome.starts_with("status"), mayFail = outcome.ends_with("transport");
    if (!mayRespond && !mayFail)
        throw std::invalid_argument("there is no code for this outcome");
    requireOrder(answer);
    if (answer.error.empty() && mayRespond)
        return requireResponse(record, answer);
    require(mayFail, "a response", answer.description());
    const auto classes = record.contains("cls") ? textOf(record, "cls") : anyClass;
    require(isOneOf(answer.error, classes), "the error " + std::string(classes),
            answer.description());
}

std::size_t countOf(std::string_view text, std::string_view part)
{
    std::size_t count = 0;
    for (auto at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

/// Everything that the server was sent, in lower case.
std::string received(const ScriptedServer& server)
{
    std::string all;
    for (const std::string& connection : server.received())
        all += connection;
    boost::algorithm::to_lower(all);
    return all;
}

/// One request for each call at most, with the headers that it was given and no others of their
/// kind.
void requireRequests(const ScriptedServer& server, std::size_t least, std::size_t most)
{
    const std::string all = received(server);
    const auto count = countOf(all, " /v2/account http/1.1\r\n");
    require(count >= least && count <= most,
            std::to_string(least) + " to " + std::to_string(most) + " requests",
            std::to_string(count) + " requests");
    const bool plain = countOf(all, "http/1.1\r\n") == count && countOf(all, "\r\ncookie:") == 0 &&
                       countOf(all, "authorization:") == count &&
                       countOf(all, "conformance-credential") == count;
    require(plain, "no other credential, cookie or request", shown(all));
}

/// A case that is played by a server.
class PlayedCase
{
public:
    explicit PlayedCase(const object& record, const array& steps)
        : record_(record), server_(scriptOf(steps)), session_(configuration(server_.port()))
    {
        endsByItself_ =
            std::ranges::any_of(steps, [](const auto& step) { return step.at("op") == "sleep"; });
    }

    void judge()
    {
        warmUp();
        const auto before = peakMemory();

        const Answer answer = call(session_, server_.address());
        requireCost(peakMemory() - before);
        requireOutcome(record_, answer);
        const bool responded = answer.error.empty();
        requireRequests(server_, responded ? 1 : 0, 1);
        if (textOf(record_, "outcome") == "status")
            judgeLaterCalls();
    }

private:
    /// The host of the redirects is this server too, so that a call there is seen.
    static platform::CurlURLSession::Configuration configuration(int port)
    {
        return {.timeLimit = callLimit,
                .bodyLimit = bodyLimit,
                .hostAddresses = {{"other.invalid", "127.0.0.1:" + std::to_string(port)}}};
    }

    /// What a process and a session need once is not what the case costs. A call without a
    /// credential stays one.
    void warmUp()
    {
        ScriptedServer other(ScriptedServer::answering(ScriptedServer::ok("body")));
        platform::CurlURLSession narrow({.timeLimit = callLimit, .bodyLimit = 1});
        call(narrow, other.address());
        call(session_, other.address(), "GET", {});
        const std::string requests = received(other);
        require(countOf(requests, "/v2/account") == 2 && countOf(requests, "authorization:") == 1,
                "a request without a credential", shown(requests));
    }

    void requireCost(std::size_t memory) const
    {
        require(server_.sent() <= bodyLimit + machineBuffers, "an end to the reading",
                std::to_string(server_.sent()) + " bytes sent");
        // Sanitizers need more for themselves.
#ifndef CONFORMANCE_SANITIZED
        require(memory < 2 * bodyLimit, "less memory than twice the body limit",
                std::to_string(memory) + " bytes more");
#else
        static_cast<void>(memory);
#endif
    }

    /// Whatever the server left behind, the next call finds what the first one found.
    void judgeLaterCalls()
    {
        requireOutcome(record_, call(session_, server_.address()));
        // Sent on a connection that was just ended by the server, it is sent again.
        requireRequests(server_, 2, 3);
        if (!endsByItself_)
            return;

        waitForEnd();
        requireOutcome(record_, call(session_, server_.address()));
        requireSingle(call(session_, server_.address(), "POST"), 1);
        requireSingle(call(session_, server_.address(), "POST"), 2);
    }

    void waitForEnd() const
    {
        require(server_.waitForOpen(0), "connections that end", "one that does not");
    }

    /// A request that does something each time arrives once, if at all.
    void requireSingle(const Answer& answer, std::size_t made) const
    {
        requireOrder(answer);
        require(answer.error.empty() || answer.error == "connectionLost",
                "a response or the error connectionLost", answer.description());
        waitForEnd();
        const auto count = countOf(received(server_), "post /v2/account");
        require(count <= made, std::to_string(made) + " POST requests at most",
                std::to_string(count) + " of them");
    }

    const object& record_;
    ScriptedServer server_;
    platform::CurlURLSession session_;
    bool endsByItself_ = false;
};

/// A port of this machine where nobody listens, for as long as the object lives.
class SilentPort
{
public:
    SilentPort() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address_;
        auto* const address = reinterpret_cast<sockaddr*>(&address_);
        if (::bind(socket_, address, length) != 0 || ::getsockname(socket_, address, &length) != 0)
            throw std::runtime_error("no loopback port");
    }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;
    ~SilentPort() { ::close(socket_); }

    std::string address() const
    {
        return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)) + "/v2/account";
    }

private:
    int socket_;
    sockaddr_in address_{};
};

void judgeCallTo(std::string_view address, const object& record)
{
    platform::CurlURLSession session({.timeLimit = callLimit, .bodyLimit = bodyLimit});
    requireOutcome(record, call(session, address));
}

void play(const object& record)
{
    const array& steps = record.at("steps").as_array();
    const object& first = steps.at(0).as_object();
    const auto op = textOf(first, "op");
    if (op == "noListen")
        judgeCallTo(SilentPort().address(), record);
    else if (op == "host")
        judgeCallTo("https://" + std::string(textOf(first, "name")) + "/v2/account", record);
    else
        PlayedCase(record, steps).judge();
}

Verdict judgeFault(const object& record, const object&)
{
    const NetworkScene scene;
    return verdictOf(
        [&]
        {
            play(record);
            require(scene.isUntouched(), "nothing stored", "a file");
        });
}

constexpr Judge judges[] = {
    {"http_fault_scripts.json", nameFromID, judgeFault, nullptr, manyAtOnce}};

}  // namespace

std::span<const Judge> faultJudges()
{
    return judges;
}

}  // namespace conformance
