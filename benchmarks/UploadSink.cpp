#include "benchmarks/UploadSink.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace
{

constexpr std::string_view endOfHead = "\r\n\r\n";
constexpr std::string_view lengthField = "Content-Length: ";

/// Takes request after request of one client, until it goes. Nothing here needs a heap, which a
/// child of a process with threads must not use.
void serve(int connection)
{
    static char buffer[1 << 18];
    for (;;)
    {
        std::size_t held = 0;
        std::size_t head = std::string_view::npos;
        while (head == std::string_view::npos)
        {
            const ssize_t length = recv(connection, buffer + held, sizeof buffer - 1 - held, 0);
            if (length <= 0)
                return;
            held += static_cast<std::size_t>(length);
            buffer[held] = '\0';
            head = std::string_view(buffer, held).find(endOfHead);
        }
        const char* const stated = std::strstr(buffer, lengthField.data());
        long long left = stated ? std::strtoll(stated + lengthField.size(), nullptr, 10) : 0;
        left -= static_cast<long long>(held - head - endOfHead.size());
        while (left > 0)
        {
            // Takes the bytes without copying them, so that the client has the CPU.
            const ssize_t length = recv(connection, nullptr, 1 << 24, MSG_TRUNC);
            if (length <= 0)
                return;
            left -= length;
        }
        constexpr std::string_view answer = "HTTP/1.1 204 No Content\r\n\r\n";
        if (send(connection, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
            return;
    }
}

[[noreturn]] void serveForever(int listener)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;)
    {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection < 0)
            _exit(1);
        // Clients keep their connections, so that each needs a process of its own.
        if (fork() == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            serve(connection);
            _exit(0);
        }
        close(connection);
    }
}

}  // namespace

UploadSink::UploadSink()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof place;
    auto* const address = reinterpret_cast<sockaddr*>(&place);
    if (listener < 0 || bind(listener, address, size) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, address, &size) != 0)
        throw std::runtime_error("No socket for the upload's server");
    address_ = "http://127.0.0.1:" + std::to_string(ntohs(place.sin_port)) + "/upload";
    process_ = fork();
    if (process_ == 0)
        serveForever(listener);
    close(listener);
}

UploadSink::~UploadSink()
{
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}
