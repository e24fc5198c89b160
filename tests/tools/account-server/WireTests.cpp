#include "tests/tools/account-server/TestServer.hpp"

#include <gtest/gtest.h>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/json/value.hpp>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace accountserver
{
namespace
{

namespace asio = boost::asio;
using asio::ip::tcp;

class Socket
{
public:
    explicit Socket(std::uint16_t port) : socket_(io_)
    {
        socket_.connect({asio::ip::address_v4::loopback(), port});
    }
    void send(std::string_view text)
    {
        boost::system::error_code ignored;
        asio::write(socket_, asio::buffer(text), ignored);
    }
    std::string readToEnd()
    {
        std::string text;
        boost::system::error_code ignored;
        asio::read(socket_, asio::dynamic_buffer(text), ignored);
        return text;
    }
    void reset()
    {
        socket_.set_option(asio::socket_base::linger(true, 0));
        socket_.close();
    }

private:
    asio::io_context io_;
    tcp::socket socket_;
};

// The control port speaks the same HTTP as the other, without TLS around it.
TEST(Wire, AnswersWhatIsNoHTTPAndGoesOn)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    const struct
    {
        std::string sent;
        const char* status;
    } cases[] = {
        {"\x16\x03\x01\x02", "HTTP/1.1 400"},
        {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", "HTTP/1.1 400"},
        {"GET / HTTP/1.1\r\nA: " + std::string(20'000, 'a') + "\r\n\r\n", "HTTP/1.1 431"},
        {"POST / HTTP/1.1\r\nContent-Length: 9999999999\r\n\r\n", "HTTP/1.1 413"},
        // What a browser was made to send by a name that leads here.
        {"GET /clock HTTP/1.1\r\nHost: evil.example\r\nX-Control: 1\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 403"},
    };
    for (const auto& [sent, status] : cases)
    {
        Socket socket(*server.server->controlPort());
        socket.send(sent);
        EXPECT_TRUE(socket.readToEnd().starts_with(status)) << sent.substr(0, 60);
    }
    Socket noTLS(server.server->port());
    noTLS.send("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    noTLS.readToEnd();
    EXPECT_EQ(server.call({"GET", "/", "", "", {}}).status, 200);
}

TEST(Wire, EndsSilentClients)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path());
    settings.idleTime = std::chrono::milliseconds(100);
    TestServer server(settings);
    Socket silent(*server.server->controlPort());
    Socket slow(*server.server->controlPort());
    slow.send("GET /clock HT");
    EXPECT_EQ(silent.readToEnd(), "");
    EXPECT_EQ(slow.readToEnd(), "");
}

TEST(Wire, OutlivesClientsThatVanish)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    for (int i = 0; i < 50; ++i)
    {
        Socket socket(server.server->port());
        if (i % 2 == 0)
            socket.send("\x16\x03\x01");
        socket.reset();
        Socket other(*server.server->controlPort());
        other.send("POST /faults HTTP/1.1\r\nContent-Length: 100\r\n\r\n{");
        other.reset();
    }
    EXPECT_EQ(server.call({"GET", "/account/", "", "", {}}).status, 200);
}

TEST(Wire, ServesManyConnectionsAtOnce)
{
    constexpr int clients = 16, requests = 25;
    TemporaryFolder folder;
    TestServer server(folder.path());
    const auto token = server.signedIn("anna@example.org");
    server.control("DELETE /requests");
    std::atomic<int> right = 0;
    std::vector<std::jthread> threads(clients);
    for (auto& thread : threads)
        thread = std::jthread(
            [&]
            {
                for (int j = 0; j < requests; ++j)
                    right += server.call({"GET", "/v2/account", "", token, {}}).status == 200;
            });
    threads.clear();

    EXPECT_EQ(right, clients * requests);
    const auto counted = server.control("GET /requests").json();
    EXPECT_EQ(counted.at("connections").to_number<int>(), clients * requests);
}

/// A call that the server holds back for so many milliseconds.
struct HeldCall
{
    TestServer& server;
    Reply reply;
    std::jthread caller;

    HeldCall(TestServer& held, int delay) : server(held)
    {
        server.control("POST /faults",
                       R"({"path":"/","kind":"delay","delay":)" + std::to_string(delay) + "}");
        caller = std::jthread([this] { reply = server.call({"GET", "/", "", "", {}}); });
        while (!server.control("GET /requests").json().at("paths").as_object().contains("/"))
            std::this_thread::yield();
    }
    Reply ended()
    {
        caller.join();
        return reply;
    }
};

TEST(Wire, StopLetsTheAnswerUnderWayEnd)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    Socket idle(server.server->port());
    Socket kept(*server.server->controlPort());
    kept.send("GET /clock HTTP/1.1\r\nHost: localhost\r\nX-Control: 1\r\n\r\n");
    HeldCall call(server, 300);

    server.stop();
    EXPECT_EQ(call.ended().status, 200);
    EXPECT_TRUE(server.call({"GET", "/", "", "", {}}).failed);
}

TEST(Wire, StopDoesNotWaitForAClientThatNeverEnds)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path());
    settings.graceTime = std::chrono::milliseconds(100);
    TestServer server(settings);
    HeldCall call(server, 600'000);

    const auto start = std::chrono::steady_clock::now();
    server.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    server.server.reset();
    EXPECT_TRUE(call.ended().failed);
}

}  // namespace
}  // namespace accountserver
