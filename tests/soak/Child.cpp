#include "tests/soak/Child.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

extern char** environ;

namespace soak
{

namespace
{

struct Pipe
{
    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::system_category(), "pipe");
        from = ends[0];
        to = ends[1];
    }

    int from = -1;
    int to = -1;
};

/// What the child gets as its input and output.
pid_t start(const std::vector<std::string>& arguments, int input, int output)
{
    std::vector<char*> pointers{const_cast<char*>("tessera-soak")};
    for (const auto& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0)
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    const int failure =
        posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        throw std::system_error(failure, std::system_category(), "posix_spawn");
    return pid;
}

}  // namespace

Child::Child(const std::vector<std::string>& arguments, Input input)
{
    const Pipe out;
    output_ = out.from;
    if (input == Input::none)
        pid_ = start(arguments, -1, out.to);
    else
    {
        const Pipe in;
        input_ = in.to;
        pid_ = start(arguments, in.from, out.to);
        close(in.from);
    }
    close(out.to);
}

Child::~Child()
{
    if (!reaped_)
    {
        signal(SIGKILL);
        wait();
    }
    close(output_);
    if (input_ >= 0)
        close(input_);
}

void Child::send(std::span<const std::byte> bytes)
{
    if (write(input_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::system_category(), "write");
    close(std::exchange(input_, -1));
}

void Child::signal(int number) const
{
    kill(pid_, number);
}

int Child::wait()
{
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR)
    {
    }
    reaped_ = true;
    return status;
}

std::string shownEnd(int waited)
{
    return WIFSIGNALED(waited) ? "signal " + std::to_string(WTERMSIG(waited))
                               : "exit code " + std::to_string(WEXITSTATUS(waited));
}

}  // namespace soak
