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
    TestServer server(folder.path);
    const struct
    {
        std::string sent;
        const char* status;
    } cases[] = {
        {"\x16\x03\x01\x02", "HTTP/1.1 400"},
        {"GET / HTTP/9.9\r\n\r\n", "HTTP/1.1 400"},
        {"GET\r\n\r\n", "HTTP/1.1 400"},
        {"GET / HTTP/1.1\r\nno colon\r\n\r\n", "HTTP/1.1 400"},
        {"POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n", "HTTP/1.1 400"},
        {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", "HTTP/1.1 400"},
        {"GET / HTTP/1.1\r\nA: " + std::string(20'000, 'a') + "\r\n\r\n", "HTTP/1.1 431"},
        {"POST / HTTP/1.1\r\nContent-Length: 9999999999\r\n\r\n", "HTTP/1.1 413"},
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

TEST(Wire, TwoRequestsInOnePacketGetTwoAnswers)
{
    TemporaryFolder folder;
    TestServer server(folder.path);
    Socket socket(*server.server->controlPort());
    const std::string request = "HEAD /clock HTTP/1.1\r\nHost: localhost\r\nX-Control: 1\r\n";
    socket.send(request + "\r\n" + request + "Connection: close\r\n\r\n");
    const auto answers = socket.readToEnd();
    const auto second = answers.find("HTTP/1.1 404", 1);
    ASSERT_NE(second, std::string::npos);
    // An answer to HEAD ends with its header.
    EXPECT_EQ(answers.substr(second - 4, 4), "\r\n\r\n");
}

TEST(Wire, EndsSilentClients)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path);
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
    TestServer server(folder.path);
    server.control(
        "POST /faults",
        R"({"path":"/","kind":"drip","pieceSize":1,"interval":5,"delay":10,"count":10})");
    for (int i = 0; i < 10; ++i)
    {
        Call leaving{"GET", "/", "", "", {}};
        leaving.timeout = 20 + 5 * i;
        EXPECT_NE(server.call(leaving).error, 0);
    }
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
    TestServer server(folder.path);
    const auto token = server.signedIn("anna@example.org");
    server.control("DELETE /requests");
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i)
        threads.emplace_back(
            [&]
            {
                for (int j = 0; j < requests; ++j)
                    right += server.call({"GET", "/v2/account", "", token, {}}).status == 200;
            });
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(right, clients * requests);
    const auto counted = server.control("GET /requests").json();
    EXPECT_EQ(counted.at("connections").to_number<int>(), clients * requests);
}

TEST(Wire, StopLetsTheAnswerUnderWayEnd)
{
    TemporaryFolder folder;
    TestServer server(folder.path);
    server.control("POST /faults", R"({"path":"/","kind":"delay","delay":300})");
    EXPECT_EQ(server.callAgain({"GET", "/account/", "", "", {}}).status, 200);
    Socket idle(server.server->port());
    Reply reply;
    std::thread caller([&] { reply = server.call({"GET", "/", "", "", {}}); });
    while (!server.control("GET /requests").json().at("paths").as_object().contains("/"))
        std::this_thread::yield();

    server.stop();
    caller.join();
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(server.call({"GET", "/", "", "", {}}).error, 0);
}

TEST(Wire, StopDoesNotWaitForAClientThatNeverEnds)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path);
    settings.graceTime = std::chrono::milliseconds(100);
    TestServer server(settings);
    server.control("POST /faults", R"({"path":"/","kind":"delay","delay":600000})");
    Reply reply;
    std::thread caller([&] { reply = server.call({"GET", "/", "", "", {}}); });
    while (!server.control("GET /requests").json().at("paths").as_object().contains("/"))
        std::this_thread::yield();

    const auto start = std::chrono::steady_clock::now();
    server.stop();
    server.server.reset();
    caller.join();
    EXPECT_NE(reply.error, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

}  // namespace
}  // namespace accountserver
