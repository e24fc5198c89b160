#include "tests/support/TemporaryFolder.hpp"
#include "tests/tools/fetch/FetchProgram.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <future>

namespace fetch
{
namespace
{

using commandline::AtTerminal;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr auto lineBack = "\r\x1B[K";

/// Four fifths of an answer at once, and the rest when it is wanted.
class HeldServer
{
public:
    ~HeldServer() { release(); }
    void release()
    {
        if (!std::exchange(released_, true))
            wanted_.set_value();
    }

    std::string address() const { return server_.address(); }

private:
    bool released_ = false;
    std::promise<void> wanted_;
    std::shared_future<void> rest_ = wanted_.get_future().share();
    ScriptedServer server_{[rest = rest_](ScriptedServer::Connection& connection)
                           {
                               connection.readRequest();
                               connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10000\r\n\r\n" +
                                               std::string(8000, 'x'));
                               rest.wait();
                               connection.send(std::string(2000, 'x'));
                           }};
};

TEST(FetchTerminal, ShowsProgressInTheMannerOfTheTerminal)
{
    const struct
    {
        const char* variable;
        std::string during;
        std::string never;
    } cases[] = {
        {"TERM=xterm", "\x1B[32m====", "\n80 %"},
        {"NO_COLOR=1", " 80 % [====", "\x1B[32m"},
        {"TERM=dumb", "80 % of 9.8 KiB\r\n", "\x1B"},
    };
    for (const auto& [variable, during, never] : cases)
    {
        SCOPED_TRACE(variable);
        const TemporaryFolder folder;
        HeldServer server;
        AtTerminal terminal(
            {"get", server.address(), "--output", folder.path() / "file", "--time-limit", "20"},
            program({variable}));
        ASSERT_TRUE(terminal.shows(during)) << terminal.screen().substr(0, 500);
        EXPECT_EQ(namesIn(folder.path()), "") << "nothing has a name before it is whole";
        server.release();

        EXPECT_EQ(terminal.end(), 0) << terminal.screen();
        EXPECT_THAT(terminal.screen(), AllOf(HasSubstr("Saved 9.8 KiB to"), Not(HasSubstr(never))));
        EXPECT_EQ(contentOf(folder.path() / "file").size(), 10'000U);
    }
}

TEST(FetchTerminal, FitsIntoATerminalThatBecomesNarrow)
{
    HeldServer server;
    AtTerminal terminal({"get", server.address()}, program());
    ASSERT_TRUE(terminal.shows("80 % [")) << terminal.screen();
    terminal.resize(7);

    EXPECT_TRUE(terminal.shows(std::string(lineBack) + " 80 %" + lineBack)) << terminal.screen();
    server.release();
    EXPECT_EQ(terminal.end(), 0);
}

TEST(FetchTerminal, EndsCleanlyOnASignalWhereverItIs)
{
    const auto busy = answer("503 Service Unavailable", "");
    const struct
    {
        std::string answer;
        const char* shown;
        int signal;
        int exitCode;
    } cases[] = {
        {"", "Waiting for the answer", SIGINT, 130},
        {"HTTP/1.1 200 OK\r\nContent-Length: 10000\r\n\r\n" + std::string(8000, 'x'), " 80 %",
         SIGTERM, 143},
        {busy, "waiting 900 s before attempt 2", SIGINT, 130},
    };
    for (const auto& [answer, shown, signal, exitCode] : cases)
    {
        SCOPED_TRACE(shown);
        const TemporaryFolder folder;
        const ScriptedServer server(
            [&](ScriptedServer::Connection& connection)
            {
                connection.readRequest();
                connection.send(answer);
                connection.hold();
            });
        AtTerminal terminal({"get", server.address(), "--output", folder.path() / "file",
                             "--retries", "1", "--base-delay", "1800"},
                            program());
        ASSERT_TRUE(terminal.shows(shown)) << terminal.screen();
        if (signal == SIGINT)
            terminal.type("\x03");
        else
            terminal.signal(signal);

        EXPECT_EQ(terminal.end(), exitCode) << terminal.screen();
        EXPECT_THAT(terminal.screen(), HasSubstr("cancelled"));
        EXPECT_EQ(namesIn(folder.path()), "");
        EXPECT_EQ(server.requests().size(), 1U);
    }
}

TEST(FetchTerminal, IsNotMovedByWhatAServerSends)
{
    const struct
    {
        std::string body;
        int exitCode;
        const char* shown;
    } cases[] = {
        {"one\r\ntwo \x1B[2J\xC2\x9B", 0, "one\r\ntwo  [2J?\r\n"},
        {std::string("\0\x1B[2J", 5), 2, "not plain text"},
        {"\xFF\x1B[2J", 2, "not plain text"},
    };
    for (const auto& [body, exitCode, shown] : cases)
    {
        const ScriptedServer server(ScriptedServer::answering(answer("200 OK", body)));
        AtTerminal terminal({"get", server.address(), "--quiet"}, program({"NO_COLOR=1"}));

        EXPECT_EQ(terminal.end(), exitCode) << terminal.screen();
        EXPECT_THAT(terminal.screen(), AllOf(HasSubstr(shown), Not(HasSubstr("\x1B"))));
    }
}

}  // namespace
}  // namespace fetch
