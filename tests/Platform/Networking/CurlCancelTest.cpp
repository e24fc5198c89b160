#include "Platform/Networking/CurlURLSession.hpp"
#include "tests/Platform/Networking/Call.hpp"
#include "tests/support/HeldNames.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"
#include "tools/scripted-server/TestCertificate.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace platform;
using namespace std::chrono_literals;
using Connection = ScriptedServer::Connection;

namespace
{

/// Cancels, and says how long the end took to come.
std::chrono::steady_clock::duration cancelled(Call& transfer)
{
    const auto begin = std::chrono::steady_clock::now();
    transfer.task->cancel();
    EXPECT_EQ(errorOf(transfer.wait()), "CancellationError");
    return std::chrono::steady_clock::now() - begin;
}

/// A port that takes no connection and refuses none: its queue is full and nobody empties it.
class FullPort
{
public:
    FullPort()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t length = sizeof address;
        sockets_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        bind(sockets_.front(), generic, length);
        listen(sockets_.front(), 0);
        getsockname(sockets_.front(), generic, &length);
        port_ = ntohs(address.sin_port);
        for (int index = 0; index < 4; ++index)
        {
            sockets_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            (void)connect(sockets_.back(), generic, length);
        }
    }
    FullPort(const FullPort&) = delete;
    FullPort& operator=(const FullPort&) = delete;
    ~FullPort()
    {
        for (const int each : sockets_)
            close(each);
    }

    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

private:
    std::vector<int> sockets_;
    int port_ = 0;
};

}  // namespace

TEST(CurlCancel, EndsATransferAtOnceAndLeavesTheOthersConnections)
{
    TestCertificate certificate;
    ScriptedServer server(
        [](Connection& connection)
        {
            for (std::string request; !(request = connection.readRequest()).empty();)
            {
                if (request.starts_with("GET /ok"))
                    connection.send(ScriptedServer::ok("ok"));
                else if (request.starts_with("GET /head"))
                    connection.send("HTTP/1.1 200 OK\r\nX-Half: ");
                else if (request.starts_with("GET /body"))
                    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc");
            }
        },
        certificate);
    ScriptedServer silent([](Connection& connection) { connection.hold(); });
    FullPort full;
    HeldNames names;
    CurlURLSession session({.trustedAuthority = certificate.pem()});
    ASSERT_EQ(errorOf(call(session, requestTo(server.address("/ok")))), "");

    struct Case
    {
        std::string what;
        std::string address;
        std::function<bool(Call&)> reached;
    };
    std::size_t requests = 0;
    const std::string inHandshake = "https://127.0.0.1:" + std::to_string(silent.port()) + "/";
    const Case cases[] = {
        {"looking up the name", "https://a.held.test/",
         [&](Call&) { return names.waitForLookUps(1); }},
        {"shaking hands", inHandshake, [&](Call&) { return silent.waitForOpen(1); }},
        {"connecting", full.address(), [&](Call& it) { return !it.endsWithin(50ms); }},
        {"before the answer", server.address("/none"),
         [&](Call&) { return server.waitForRequests(requests + 1); }},
        {"in the head", server.address("/head"),
         [&](Call&) { return server.waitForRequests(requests + 1); }},
        {"in the body", server.address("/body"),
         [&](Call& it)
         {
             while (it.task->countOfBytesReceived() < 3)
                 std::this_thread::yield();
             return true;
         }},
    };
    for (const Case& each : cases)
    {
        requests = server.requests().size();
        Call transfer(session, requestTo(each.address));
        ASSERT_TRUE(each.reached(transfer)) << each.what;
        ASSERT_EQ(errorOf(call(session, requestTo(server.address("/ok")))), "");
        const int during = server.accepted();

        EXPECT_LT(cancelled(transfer), 50ms) << each.what;

        EXPECT_TRUE(silent.waitForOpen(0)) << each.what;
        EXPECT_TRUE(server.waitForOpen(1)) << each.what;
        EXPECT_EQ(errorOf(call(session, requestTo(server.address("/ok")))), "");
        EXPECT_EQ(server.accepted(), during) << each.what;
    }
}

TEST(CurlCancel, EndsAShutDownInWhateverPhaseATransferIs)
{
    HeldNames names;
    ScriptedServer server([](Connection& connection) { connection.hold(); });
    CurlURLSession session;
    std::vector<Call> transfers;
    for (int index = 0; index < 3; ++index)
    {
        transfers.emplace_back(session, requestTo("https://b.held.test/"));
        transfers.emplace_back(session, requestTo(server.address()));
    }
    ASSERT_TRUE(names.waitForLookUps(1) && server.waitForOpen(3));

    const auto begin = std::chrono::steady_clock::now();
    session.shutdown();
    session.shutdown();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 200ms);

    for (Call& transfer : transfers)
        EXPECT_EQ(errorOf(transfer.wait()), "CancellationError");
    EXPECT_TRUE(server.waitForOpen(0));
    EXPECT_EQ(errorOf(call(session, requestTo(server.address()))), "CancellationError");
}

TEST(CurlCancel, BeforeTheStartSendsNothingAndStillCompletesOnce)
{
    ScriptedServer server(ScriptedServer::answering(ScriptedServer::ok("")));
    CurlURLSession session;
    std::atomic<int> completions = 0;
    std::promise<std::string> error;
    const auto task = session.dataTask(requestTo(server.address()),
                                       [&](URLCompletion completion)
                                       {
                                           ++completions;
                                           error.set_value(errorOf(completion));
                                       });

    task->cancel();
    EXPECT_EQ(completions, 0);
    task->resume();
    task->resume();
    task->cancel();

    EXPECT_EQ(error.get_future().get(), "CancellationError");
    session.shutdown();
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(server.accepted(), 0);
}

TEST(CurlCancel, ATaskThatIsNeverStartedLetsGoOfItsCompletion)
{
    CurlURLSession session;
    const auto token = std::make_shared<int>();
    session.dataTask(requestTo("https://host/"), [token](URLCompletion) { FAIL(); })->cancel();

    EXPECT_EQ(token.use_count(), 1);
}

TEST(CurlCancel, CompletesOnceWhateverRaces)
{
    ScriptedServer server(ScriptedServer::answering(ScriptedServer::ok("answer")));
    constexpr std::size_t threads = 4;
    constexpr std::size_t perThread = 60;
    for (const bool endsEarly : {false, true})
    {
        std::vector<std::atomic<int>> completions(threads * perThread);
        std::atomic<int> answered = 0;
        CurlURLSession session;
        const auto run = [&](std::size_t caller)
        {
            std::minstd_rand random(static_cast<unsigned>(caller) + 1);
            for (std::size_t index = 0; index < perThread; ++index)
            {
                std::atomic<int>& count = completions[caller * perThread + index];
                const auto task = session.dataTask(requestTo(server.address()),
                                                   [&](URLCompletion completion)
                                                   {
                                                       ++count;
                                                       answered += !completion.error;
                                                   });
                std::jthread canceller;
                if (random() % 2 == 0)
                    canceller = std::jthread([task] { task->cancel(); });
                task->resume();
                if (random() % 4 == 0)
                    task->cancel();
                if (endsEarly && caller == 0 && index == perThread / 2)
                    session.shutdown();
            }
        };
        {
            std::vector<std::jthread> callers;
            for (std::size_t caller = 0; caller < threads; ++caller)
                callers.emplace_back(run, caller);
        }
        session.shutdown();

        for (const auto& count : completions)
            ASSERT_EQ(count, 1);
        EXPECT_LT(answered, static_cast<int>(threads * perThread));
    }
}

TEST(CurlCancel, ACompletionMayStartCancelAndEndTheSession)
{
    ScriptedServer server(ScriptedServer::answering(ScriptedServer::ok("answer")));
    auto session = std::make_unique<CurlURLSession>();
    std::promise<std::string> second;
    std::promise<std::string> third;
    std::promise<void> ended;
    const auto held = session->dataTask(requestTo(server.address()), [&](URLCompletion completion)
                                        { third.set_value(errorOf(completion)); });
    const auto first =
        session->dataTask(requestTo(server.address()),
                          [&](URLCompletion)
                          {
                              session
                                  ->dataTask(requestTo(server.address()),
                                             [&](URLCompletion completion)
                                             {
                                                 second.set_value(errorOf(completion));
                                                 session.reset();
                                                 ended.set_value();
                                             })
                                  ->resume();
                              held->cancel();
                              held->resume();
                          });
    first->resume();

    EXPECT_EQ(third.get_future().get(), "CancellationError");
    EXPECT_EQ(second.get_future().get(), "");
    ended.get_future().get();
    EXPECT_EQ(session, nullptr);
}

TEST(CurlCancel, ManyTransfersAtOnceAllEnd)
{
    ScriptedServer server(ScriptedServer::answering(ScriptedServer::ok("answer")));
    CurlURLSession session;
    for (int round = 0; round < 2; ++round)
    {
        std::vector<Call> transfers;
        for (int index = 0; index < 100; ++index)
            transfers.emplace_back(session, requestTo(server.address()));
        for (Call& transfer : transfers)
            EXPECT_EQ(textOf(*transfer.wait().body), "answer");
    }
}
