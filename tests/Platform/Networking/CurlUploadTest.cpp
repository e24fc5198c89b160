#include "Platform/Networking/CurlURLSession.hpp"
#include "tests/Platform/Networking/Call.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

using namespace platform;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr std::size_t size = 3'000'001;

struct CurlUpload : testing::Test
{
    const TemporaryFolder folder;
    const std::filesystem::path file = folder.path() / "file";
    CurlURLSession session;

    Call upload(const ScriptedServer& server, std::string method, std::filesystem::path from)
    {
        return Call(session, requestTo(server.address(), std::move(method)), std::move(from));
    }
};

}  // namespace

TEST_F(CurlUpload, SendsTheFileAsTheBodyWithoutAskingTwice)
{
    const ScriptedServer server(ScriptedServer::answering("HTTP/1.1 204 None\r\n\r\n"));
    folder.write("file", std::string(size, 'x') + "the end");
    for (const std::string method : {"POST", "PUT", "GET"})
    {
        auto call = upload(server, method, file);
        const auto completion = call.wait();
        EXPECT_EQ(errorOf(completion), "");
        const std::string request = server.requests().back();
        const std::string head = request.substr(0, request.find("\r\n\r\n"));
        EXPECT_THAT(head, HasSubstr(method + " /v2/account HTTP/1.1"));
        EXPECT_THAT(head, HasSubstr("Content-Length: 3000008"));
        EXPECT_THAT(head, Not(HasSubstr("Expect")));
        EXPECT_THAT(head, Not(HasSubstr("Content-Type")));
        EXPECT_THAT(request, EndsWith("xthe end"));
        EXPECT_EQ(request.size(), head.size() + 4 + size + 7);
        EXPECT_EQ(call.task->countOfBytesSent(), 3'000'008);
        EXPECT_EQ(call.task->countOfBytesExpectedToSend(), 3'000'008);
        EXPECT_EQ(call.task->progress().completedUnitCount(), 3'000'008);
    }
    EXPECT_EQ(errorOf(call(session, requestTo(server.address()))), "");
    EXPECT_THAT(server.requests().back(), Not(HasSubstr("Content-Length")))
        << "nothing stays behind for the next request of the handle";
    EXPECT_EQ(server.accepted(), 1);

    folder.write("file", "");
    EXPECT_EQ(errorOf(upload(server, "PUT", file).wait()), "");
    EXPECT_THAT(server.requests().back(), HasSubstr("Content-Length: 0"));
}

TEST_F(CurlUpload, AFileThatCannotBeReadIsAnErrorBeforeAnythingIsSent)
{
    const ScriptedServer server(ScriptedServer::answering("HTTP/1.1 204 None\r\n\r\n"));
    const auto pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& path : {file, folder.path(), pipe, std::filesystem::path()})
    {
        auto call = upload(server, "PUT", path);
        EXPECT_EQ(errorOf(call.wait()), "URLError.unreadableFile") << path;
        EXPECT_EQ(call.task->countOfBytesExpectedToSend(), -1);
    }
    EXPECT_EQ(server.accepted(), 0);

    EXPECT_EQ(errorOf(call(session, requestTo(server.address()))), "");
}

TEST_F(CurlUpload, AFileThatGetsShorterEndsTheTransferAndALongerOneSendsWhatItHeld)
{
    constexpr std::uintmax_t large = 64 << 20;  // More than the system's buffers take at once.
    const auto uploadResized = [&](std::uintmax_t to)
    {
        folder.write("file", "");
        std::filesystem::resize_file(file, large);
        const ScriptedServer server(
            [&](ScriptedServer::Connection& connection)
            {
                connection.readHead();
                std::filesystem::resize_file(file, to);
                connection.send("HTTP/1.1 204 None\r\n\r\n");
                connection.hold();
            });
        auto call = upload(server, "PUT", file);
        const auto error = errorOf(call.wait());
        EXPECT_TRUE(!error.empty() || call.task->countOfBytesSent() == large);
        return error;
    };
    EXPECT_EQ(uploadResized(large + 9), "");
    EXPECT_EQ(uploadResized(9), "URLError.unreadableFile");
}

TEST_F(CurlUpload, BeginsAnewWhenAKeptConnectionWasDead)
{
    folder.write("file", "the whole file");
    const ScriptedServer server(
        [](ScriptedServer::Connection& connection)
        {
            // Answers once, and breaks off in the middle of what comes next.
            connection.readRequest();
            connection.send("HTTP/1.1 204 None\r\n\r\n");
            connection.readHead();
            connection.reset();
        });
    EXPECT_EQ(errorOf(call(session, requestTo(server.address()))), "");
    EXPECT_EQ(errorOf(upload(server, "PUT", file).wait()), "");
    EXPECT_THAT(server.requests().back(), EndsWith("\r\n\r\nthe whole file"));

    EXPECT_EQ(errorOf(upload(server, "POST", file).wait()), "URLError.connectionLost")
        << "the server may have acted on it";
}

TEST_F(CurlUpload, IsCancelledInTheMiddleOfTheFile)
{
    folder.write("file", std::string(size, 'x'));
    const ScriptedServer server(
        [](ScriptedServer::Connection& connection)
        {
            connection.readHead();
            connection.hold();
        });
    auto call = upload(server, "PUT", file);
    ASSERT_TRUE(server.waitForRequests(1));
    call.task->cancel();
    EXPECT_EQ(errorOf(call.wait()), "CancellationError");
    EXPECT_TRUE(server.waitForOpen(0));
}
