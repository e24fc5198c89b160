#include "Platform/Networking/CurlURLSession.hpp"
#include "tests/Platform/Networking/Call.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

using namespace platform;
using namespace std::chrono_literals;
using Connection = ScriptedServer::Connection;

namespace
{

std::string_view status = "HTTP/1.1 200 OK\r\n";
constexpr std::size_t mebibyte = std::size_t{1} << 20;

/// Reads the request, sends these bytes and ends properly.
ScriptedServer::Script sending(std::string bytes)
{
    return [bytes = std::move(bytes)](Connection& connection)
    {
        connection.readRequest();
        connection.send(bytes);
    };
}

/// Reads the request, sends these bytes and says nothing more.
ScriptedServer::Script stallingAfter(std::string bytes)
{
    return [bytes = std::move(bytes)](Connection& connection)
    {
        connection.readRequest();
        connection.send(bytes);
        connection.hold();
    };
}

ScriptedServer::Script resettingAfter(std::string bytes)
{
    return [bytes = std::move(bytes)](Connection& connection)
    {
        connection.readRequest();
        connection.send(bytes);
        connection.reset();
    };
}

ScriptedServer::Script repeating(std::string first, std::string then,
                                 std::chrono::milliseconds pause = 0ms)
{
    return [=](Connection& connection)
    {
        connection.readRequest();
        connection.send(first);
        connection.sendForever(then, pause);
    };
}

std::string head(std::string_view headers)
{
    return std::string(status) + std::string(headers) + "\r\n\r\n";
}

std::string chunk(std::size_t size)
{
    std::ostringstream length;
    length << std::hex << size;
    return length.str() + "\r\n" + std::string(size, 'a') + "\r\n";
}

/// The memory of this process, in bytes: what is resident ("VmRSS") or was at most ("VmHWM").
std::size_t resident(std::string_view which)
{
    std::ifstream lines("/proc/self/status");
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(which))
            return std::stoul(line.substr(which.size() + 1)) * 1024;
    return 0;
}

// Sanitizers keep memory of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryIsOurs = false;
#elif defined(__has_feature)
constexpr bool memoryIsOurs = !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
constexpr bool memoryIsOurs = true;
#endif

}  // namespace

TEST(CurlFailure, NamesWhatWentWrong)
{
    struct Case
    {
        std::string what;
        ScriptedServer::Script script;
        std::string expected;
    };
    const std::string partHead = std::string(status) + "Content-Le";
    const std::string announced = head("Content-Length: 100") + "abc";
    const std::string chunked = head("Transfer-Encoding: chunked");
    const Case cases[] = {
        {"reset at once", [](Connection& it) { it.reset(); }, "URLError.connectionLost"},
        {"no answer", sending(""), "URLError.connectionLost"},
        {"reset in the head", resettingAfter(partHead), "URLError.connectionLost"},
        {"reset in the body", resettingAfter(announced), "URLError.connectionLost"},
        {"end in the status line", sending("HTTP/1.1 200"), "URLError.connectionLost"},
        {"end in the head", sending(partHead), "URLError.truncated"},
        {"end after a header", sending(std::string(status) + "X: y\r\n"), "URLError.truncated"},
        {"end in an interim answer", sending("HTTP/1.1 103 Hints\r\n\r\n"), "URLError.truncated"},
        {"end in the body", sending(announced), "URLError.truncated"},
        {"end in the chunks", sending(chunked + chunk(5)), "URLError.truncated"},
        {"no HTTP", sending("just some bytes\r\n"), "URLError.protocol"},
        {"bad chunk", sending(chunked + "zz\r\n"), "URLError.protocol"},
        {"another protocol", stallingAfter("HTTP/1.1 101 Go\r\n\r\n"), "URLError.protocol"},
        {"endless head", repeating(std::string(status), "X: " + std::string(1000, 'a') + "\r\n"),
         "URLError.protocol"},
        {"endless short lines", repeating(std::string(status), "a:\r\n"), "URLError.protocol"},
        {"endless interim answers", repeating("", "HTTP/1.1 103 Hints\r\n\r\n"),
         "URLError.protocol"},
        {"stall before the answer", stallingAfter(""), "URLError.timeout"},
        {"stall in the head", stallingAfter(partHead), "URLError.timeout"},
        {"stall in the body", stallingAfter(announced), "URLError.timeout"},
        {"dripping head", repeating(std::string(status) + "X: ", "a", 10ms), "URLError.timeout"},
        {"dripping body", repeating(head("Content-Length: 99999"), "a", 10ms), "URLError.timeout"},
    };
    CurlURLSession session;
    for (const Case& each : cases)
    {
        ScriptedServer server(each.script);
        URLRequest request = requestTo(server.address());
        if (each.expected == "URLError.timeout")
            request.timeout = 150ms;
        const auto completion = call(session, std::move(request));
        EXPECT_EQ(errorOf(completion), each.expected) << each.what;
        EXPECT_FALSE(completion.body || completion.response) << each.what;
    }
}

TEST(CurlFailure, NamesAServerThatIsNotThere)
{
    std::string address;
    {
        ScriptedServer gone(ScriptedServer::answering(""));
        address = gone.address();
    }
    CurlURLSession session;

    EXPECT_EQ(errorOf(call(session, requestTo(address))), "URLError.connectionRefused");
    EXPECT_EQ(errorOf(call(session, requestTo("https://no-such-host.invalid/"))),
              "URLError.nameNotFound");
}

TEST(CurlFailure, ObeysTheSmallerTimeLimit)
{
    ScriptedServer server(stallingAfter(""));
    struct Case
    {
        std::optional<std::chrono::milliseconds> ofSession;
        std::chrono::milliseconds ofRequest;
        std::chrono::milliseconds expected;
    };
    for (const Case& each : {Case{100ms, 60s, 100ms}, Case{60s, 100ms, 100ms},
                             Case{{}, 100ms, 100ms}, Case{{}, 0ms, 0ms}, Case{{}, -5ms, 0ms}})
    {
        CurlURLSession session({.timeLimit = each.ofSession});
        URLRequest request = requestTo(server.address());
        request.timeout = each.ofRequest;
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(errorOf(call(session, request)), "URLError.timeout");
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(took, each.expected);
        EXPECT_LT(took, 2s);
    }
}

TEST(CurlFailure, TakesABodyUpToTheLimitAndNoByteMore)
{
    struct Case
    {
        std::string answer;
        std::string expected;
    };
    const std::string chunked = head("Transfer-Encoding: chunked");
    const std::string unlengthed = head("X: y");
    const Case cases[] = {
        {ScriptedServer::ok(std::string(9999, 'a')), ""},
        {ScriptedServer::ok(std::string(10000, 'a')), ""},
        {ScriptedServer::ok(std::string(10001, 'a')), "URLError.tooLarge"},
        {head("Content-Length: 99999999999999") + "a", "URLError.tooLarge"},
        {chunked + chunk(5000) + chunk(5000) + "0\r\n\r\n", ""},
        {chunked + chunk(5000) + chunk(5001) + "0\r\n\r\n", "URLError.tooLarge"},
        {unlengthed + std::string(10000, 'a'), ""},
        {unlengthed + std::string(10001, 'a'), "URLError.tooLarge"},
    };
    CurlURLSession session({.bodyLimit = 10000});
    for (const Case& each : cases)
    {
        ScriptedServer server(sending(each.answer));
        EXPECT_EQ(errorOf(call(session, requestTo(server.address()))), each.expected)
            << each.answer.substr(0, 60);
    }
}

TEST(CurlFailure, HoldsNoMoreMemoryThanTheLimitAllows)
{
    constexpr std::size_t limit = 16 * mebibyte;
    const std::string piece = chunk(64 * 1024);
    CurlURLSession session;
    for (const auto* headers : {"Transfer-Encoding: chunked", "X: no length"})
    {
        ScriptedServer server(repeating(head(headers), piece));
        ASSERT_EQ(errorOf(call(session, requestTo("http://127.0.0.1:1/"))),
                  "URLError.connectionRefused");
        std::ofstream("/proc/self/clear_refs") << "5";  // The peak starts again from here.
        const std::size_t before = resident("VmRSS:");

        EXPECT_EQ(errorOf(call(session, requestTo(server.address()))), "URLError.tooLarge");

        const std::size_t growth = resident("VmHWM:") - before;
        EXPECT_GT(growth, limit / 2) << "the peak is not seen";
        if (memoryIsOurs)
        {
            EXPECT_LT(growth, limit + mebibyte);
        }
    }
}

TEST(CurlFailure, UsesNoConnectionWithBytesThatNobodyAskedFor)
{
    ScriptedServer server(
        [](Connection& connection)
        {
            connection.readRequest();
            connection.send(ScriptedServer::ok("ok") + ScriptedServer::ok("evil"));
            connection.hold();
        });
    CurlURLSession session;
    for (int round = 1; round <= 2; ++round)
        EXPECT_EQ(textOf(*call(session, requestTo(server.address())).body), "ok");

    EXPECT_EQ(server.accepted(), 2);
}

/// The server takes a second request on a connection and drops it: the case in which libcurl sends
/// it once more by itself.
TEST(CurlFailure, SendsARequestTwiceOnlyWhenThatIsHarmless)
{
    struct Case
    {
        std::string method;
        std::string expected;
        std::size_t requests;
    };
    for (const Case& each :
         {Case{"GET", "", 3}, Case{"DELETE", "", 3}, Case{"POST", "URLError.connectionLost", 2},
          Case{"PATCH", "URLError.connectionLost", 2}})
    {
        std::atomic<int> connections = 0;
        ScriptedServer server(
            [&connections](Connection& connection)
            {
                const bool first = ++connections == 1;
                connection.readRequest();
                connection.send(ScriptedServer::ok("ok"));
                connection.readRequest();
                if (!first)
                    connection.send(ScriptedServer::ok("ok"));
            });
        CurlURLSession session;
        ASSERT_EQ(errorOf(call(session, requestTo(server.address(), each.method))), "");

        EXPECT_EQ(errorOf(call(session, requestTo(server.address(), each.method))), each.expected)
            << each.method;
        EXPECT_EQ(server.requests().size(), each.requests) << each.method;
    }
}

TEST(CurlFailure, TakesAnAnswerThatComesBeforeTheBodyWasRead)
{
    ScriptedServer server(
        [](Connection& connection)
        {
            connection.readHead();
            connection.send("HTTP/1.1 413 Large\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
        });
    CurlURLSession session;
    URLRequest request = requestTo(server.address(), "POST");
    request.body = bytesOf(std::string(8 * mebibyte, 'x'));

    EXPECT_EQ(httpStatusCode(*call(session, request).response), 413);
}
