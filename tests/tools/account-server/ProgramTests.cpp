#include "tests/tools/account-server/TestServer.hpp"
#include "tools/account-server/Files.hpp"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace accountserver
{
namespace
{

constexpr auto program = ACCOUNT_SERVER_PROGRAM;

struct Ended
{
    int exitCode;
    std::string output;
    std::string errors;
};

Ended run(const std::filesystem::path& folder, const std::string& arguments)
{
    const auto output = folder / "output", errors = folder / "errors";
    const auto command =
        std::string(program) + " " + arguments + " >" + output.string() + " 2>" + errors.string();
    const int status = std::system(command.c_str());
    return {WEXITSTATUS(status), readFile(output).value(), readFile(errors).value()};
}

TEST(Program, TellsByItsExitCodeAndOneSentenceWhatIsWrong)
{
    TemporaryFolder folder;
    const TestServer running(folder.path() / "running");
    const auto taken = std::to_string(running.server->port());
    const auto fresh = " --state " + (folder.path() / "fresh").string();
    const struct
    {
        std::string arguments;
        int exitCode;
    } cases[] = {
        {"--help", 0},
        {"--version", 0},
        {"--port none" + fresh, 2},
        {"--client Editor" + fresh, 2},
        {"--algorithm HS256" + fresh, 2},
        {"mailbox" + fresh, 2},
        {"--state /proc/none/none", 3},
        {"--state " + (folder.path() / "running").string() + " --port 0", 3},
        {"--port " + taken + fresh, 4},
        {"mailbox --email anna@example.org" + fresh, 5},
    };
    for (const auto& [arguments, exitCode] : cases)
    {
        const auto ended = run(folder.path(), arguments);
        EXPECT_EQ(ended.exitCode, exitCode) << arguments << "\n" << ended.errors;
        const bool sentence = ended.errors.starts_with("tessera-account-server: ") &&
                              ended.errors.find('\n') == ended.errors.size() - 1;
        EXPECT_EQ(sentence, exitCode != 0) << ended.errors;
    }
}

/// The program in a process of its own, and what it writes to standard output.
class Process
{
public:
    explicit Process(const std::string& arguments)
        : output_(::popen(("echo $$; exec " + std::string(program) + " " + arguments).c_str(), "r"))
    {
        child_ = std::stoi(line());
    }

    /// The next line, or nothing when the program has ended.
    std::string line()
    {
        char text[200] = "";
        return std::fgets(text, sizeof text, output_) == nullptr ? "" : text;
    }
    int end()
    {
        ::kill(child_, SIGTERM);
        return ::pclose(output_);
    }

private:
    std::FILE* output_;
    pid_t child_;
};

TEST(Program, ServesUntilASignalAndLogsNoSecret)
{
    TemporaryFolder folder;
    const auto state = folder.path() / "state", log = folder.path() / "log";
    Process server("--port 0 --control 0 --state " + state.string() + " 2>" + log.string());
    EXPECT_TRUE(server.line().starts_with("control interface on http://127.0.0.1:"));
    const auto ready = server.line();
    ASSERT_TRUE(ready.starts_with("listening on https://localhost:")) << ready;

    const auto address = ready.substr(13, ready.size() - 14);
    const auto request = "curl -sS --noproxy '*' --cacert " + (state / "authority.pem").string() +
                         " -A '" + userAgent + "' " + address +
                         "v2/auth/one-time-code -H 'Content-Type: application/json' -d "
                         "'{\"email\":\"anna@example.org\"}'";
    EXPECT_EQ(std::system(request.c_str()), 0);
    const auto code =
        run(folder.path(), "mailbox --email Anna@example.org --state " + state.string()).output;
    EXPECT_EQ(server.line(), "code for anna@example.org: " + code);
    EXPECT_EQ(code.size(), 7u);

    EXPECT_EQ(server.end(), 0);
    const auto logged = readFile(log).value_or("");
    EXPECT_TRUE(logged.starts_with("POST /v2/auth/one-time-code 204 ")) << logged;
    EXPECT_EQ(logged.find("anna"), std::string::npos);
}

}  // namespace
}  // namespace accountserver
