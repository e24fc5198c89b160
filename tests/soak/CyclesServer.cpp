#include "tests/soak/CyclesServer.hpp"

#include "tools/account-server/Mailer.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace soak
{
namespace
{

[[noreturn]] void become(std::vector<std::string>& words, int output)
{
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::dup2(output, STDOUT_FILENO);
    ::execv(words.front().c_str(), arguments.data());
    ::_exit(127);
}

void waitUntilItListens(int output)
{
    std::string printed;
    char text[512];
    while (printed.find("listening on ") == std::string::npos)
    {
        const auto size = ::read(output, text, sizeof text);
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0)
            throw std::runtime_error("the account server did not start");
        printed.append(text, static_cast<std::size_t>(size));
    }
}

}  // namespace

CyclesServer::CyclesServer(const std::filesystem::path& program, std::filesystem::path folder)
    : folder_(std::move(folder))
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::system_category(), "pipe");
    std::vector<std::string> words{program,
                                   "--state",
                                   folder_,
                                   "--port",
                                   "0",
                                   "--quiet",
                                   "--codes-per-hour",
                                   "0",
                                   "--code-tries",
                                   "1000",
                                   "--reauthenticate-after",
                                   "0"};
    pid_ = ::fork();
    if (pid_ == 0)
        become(words, ends[1]);
    ::close(ends[1]);
    output_ = ends[0];
    waitUntilItListens(output_);
}

CyclesServer::~CyclesServer()
{
    ::kill(pid_, SIGTERM);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR)
    {
    }
    ::close(output_);
}

std::string CyclesServer::takeCode(const std::string& email) const
{
    const auto code = accountserver::newestCode(folder_, email);
    if (!code)
        throw std::runtime_error("no code was mailed");
    for (const auto& entry : std::filesystem::directory_iterator(folder_ / "mailbox"))
        if (entry.path().filename().string().find(email) != std::string::npos)
            std::filesystem::remove(entry.path());
    return *code;
}

}  // namespace soak
