#include "tests/soak/Child.hpp"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <cerrno>
#include <system_error>

namespace soak
{

Child::Child(std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::system_category(), "socketpair");
    channel_ = ends[0];
    pid_ = fork();
    if (pid_ == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        execv(arguments.front(), arguments.data());
        _exit(127);
    }
    close(ends[1]);
}

Child::~Child()
{
    if (!reaped_)
    {
        signal(SIGKILL);
        wait();
    }
    close(channel_);
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
