#include "tests/tools/Process.hpp"

#include <gtest/gtest.h>
#include <boost/json/parse.hpp>

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
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
        : words_{surroundings.program}
    {
        // The first of a name counts.
        variables_.insert(variables_.begin(), surroundings.variables.begin(),
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
        // Modes bind root, too, as they do whoever else runs the tests; that user may not do this.
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
        ::execve(words_.front().c_str(), arguments_.data(), environment_.data());
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

void AtTerminal::signal(int number) const
{
    EXPECT_EQ(::kill(child_, number), 0);
}

void AtTerminal::resize(unsigned short columns) const
{
    const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    EXPECT_EQ(::ioctl(terminal_, TIOCSWINSZ, &size), 0);
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

}  // namespace commandline
