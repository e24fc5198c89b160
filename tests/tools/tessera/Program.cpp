#include "tests/tools/tessera/Program.hpp"

#include <gtest/gtest.h>
#include <boost/json/parse.hpp>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace commandline
{
namespace
{

/// What `execve` takes, made before the fork: afterwards nothing may be allocated.
class Invocation
{
public:
    Invocation(const Arguments& arguments, const Surroundings& surroundings)
        : words_{TESSERA_PROGRAM}
    {
        variables_.insert(variables_.end(), surroundings.variables.begin(),
                          surroundings.variables.end());
        // The rest of the environment stays: sanitizers take their options from it.
        for (char** variable = ::environ; *variable != nullptr; ++variable)
            if (!isOurs(*variable))
                variables_.emplace_back(*variable);
        words_.insert(words_.end(), arguments.begin(), arguments.end());
        for (auto& word : words_)
            arguments_.push_back(word.data());
        for (auto& variable : variables_)
            environment_.push_back(variable.data());
        arguments_.push_back(nullptr);
        environment_.push_back(nullptr);
    }

    [[noreturn]] void execute() const
    {
        ::execve(TESSERA_PROGRAM, arguments_.data(), environment_.data());
        ::_exit(127);
    }

private:
    bool isOurs(const std::string& variable) const
    {
        const auto name = variable.substr(0, variable.find('='));
        const auto isNamed = [&](const std::string& other)
        { return other.starts_with(name + "="); };
        return name == "LANGUAGE" || name == "NO_COLOR" ||
               std::any_of(variables_.begin(), variables_.end(), isNamed);
    }

    std::vector<std::string> words_;
    std::vector<std::string> variables_{"LC_ALL=C", "TERM=xterm"};
    std::vector<char*> arguments_;
    std::vector<char*> environment_;
};

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File temporary(const std::string& content = "")
{
    File file(std::tmpfile(), std::fclose);
    std::fwrite(content.data(), 1, content.size(), file.get());
    std::rewind(file.get());
    return file;
}

std::string contentOf(const File& file)
{
    std::rewind(file.get());
    std::string content;
    for (int c = std::fgetc(file.get()); c != EOF; c = std::fgetc(file.get()))
        content += static_cast<char>(c);
    return content;
}

int exitCodeOf(pid_t child)
{
    int status = 0;
    if (::waitpid(child, &status, 0) != child)
        throw std::runtime_error("waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

boost::json::value Ended::json() const
{
    EXPECT_EQ(output.find('\n'), output.size() - 1) << output;
    return boost::json::parse(output);
}

Ended run(const Arguments& arguments, const std::string& input, const Surroundings& surroundings)
{
    const Invocation invocation(arguments, surroundings);
    const auto in = temporary(input), out = temporary(), errors = temporary(),
               third = temporary(surroundings.third);
    const pid_t child = ::fork();
    if (child == 0)
    {
        // First of all, for another file may have this number.
        const int moved = ::fcntl(::fileno(third.get()), F_DUPFD, 10);
        ::dup2(::fileno(in.get()), STDIN_FILENO);
        ::dup2(::fileno(out.get()), STDOUT_FILENO);
        ::dup2(::fileno(errors.get()), STDERR_FILENO);
        ::dup2(moved, 3);
        invocation.execute();
    }
    const int exitCode = exitCodeOf(child);
    return {exitCode, contentOf(out), contentOf(errors)};
}

AtTerminal::AtTerminal(const Arguments& arguments, const Surroundings& surroundings)
{
    const Invocation invocation(arguments, surroundings);
    child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ == 0)
        invocation.execute();
}

AtTerminal::~AtTerminal()
{
    ::close(terminal_);
    if (child_ > 0)
        exitCodeOf(child_);
}

bool AtTerminal::readMore()
{
    constexpr int longest = 30'000;
    pollfd waiting{terminal_, POLLIN, 0};
    if (::poll(&waiting, 1, longest) <= 0)
        return false;
    char text[512];
    const auto size = ::read(terminal_, text, sizeof text);
    if (size > 0)
        screen_.append(text, static_cast<std::size_t>(size));
    return size > 0;
}

bool AtTerminal::shows(const std::string& text, int times)
{
    std::size_t place = 0;
    while (times > 0)
    {
        const auto found = screen_.find(text, place);
        if (found == std::string::npos && !readMore())
            return false;
        if (found == std::string::npos)
            continue;
        place = found + text.size();
        --times;
    }
    return true;
}

void AtTerminal::type(const std::string& text) const
{
    EXPECT_EQ(::write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

bool AtTerminal::echoes() const
{
    termios settings{};
    EXPECT_EQ(::tcgetattr(terminal_, &settings), 0);
    return (settings.c_lflag & ECHO) != 0;
}

int AtTerminal::end()
{
    while (readMore())
        ;
    return exitCodeOf(std::exchange(child_, -1));
}

Surroundings privateFolders(const std::filesystem::path& home)
{
    std::filesystem::create_directories(home / "run");
    std::filesystem::permissions(home / "run", std::filesystem::perms::owner_all);
    const auto path = home.string();
    return {{"HOME=" + path, "XDG_DATA_HOME=" + path + "/data",
             "XDG_CONFIG_HOME=" + path + "/config", "XDG_STATE_HOME=" + path + "/state",
             "XDG_RUNTIME_DIR=" + path + "/run", "DBUS_SESSION_BUS_ADDRESS=", "TESSERA_KEYCHAIN="},
            ""};
}

accountserver::Settings Stage::settings(const std::filesystem::path& state)
{
    auto settings = accountserver::TestServer::settings(state);
    // Answers that a fault holds back are not waited for at the end.
    settings.graceTime = std::chrono::milliseconds(0);
    return settings;
}

Arguments Stage::with(Arguments arguments) const
{
    arguments.insert(arguments.end(), {"--environment", environment});
    return arguments;
}

std::string Stage::code(const std::string& email) const
{
    server.requestCode(email);
    return server.newestCode(email);
}

std::string Stage::signIn(const std::string& email) const
{
    const auto ended = tessera({"sign-in", "--email", email, "--code", code(email)});
    EXPECT_EQ(ended.exitCode, 0) << ended.errors;
    return token();
}

namespace
{

Arguments onStoredToken(const std::string& verb)
{
    return {"keychain",         verb,
            "--service",        "Ostra Account Local",
            "--group",          "group.net.ostra.account",
            "--synchronizable", "--accessibility",
            "afterFirstUnlock", "Token"};
}

}  // namespace

std::string Stage::token() const
{
    return run(onStoredToken("get"), "", surroundings).output;
}

void Stage::store(const std::string& token) const
{
    EXPECT_EQ(run(onStoredToken("set"), token, surroundings).exitCode, 0);
}

std::int64_t Stage::requests() const
{
    return server.control("GET /requests").json().at("total").to_number<std::int64_t>();
}

}  // namespace commandline
