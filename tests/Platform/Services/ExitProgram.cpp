// Ends while the services work: a transfer waits for a server that never answers, a timer for its
// time. The process must leave nothing that runs on, neither a crash nor a hang.

#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Networking/URLSession.hpp"
#include "Platform/Services/Services.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{

/// The port of a socket that accepts connections and reads nothing.
int silentPort()
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, size) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, generic, &size) != 0)
        std::abort();
    return ntohs(address.sin_port);
}

}  // namespace

int main()
{
    const auto services = platform::services();
    const auto port = std::to_string(silentPort());
    for (const std::string scheme : {"https", "http"})
    {
        const auto url = platform::URL::parse(scheme + "://127.0.0.1:" + port + "/");
        auto task = services.urlSession->dataTask(
            {.url = *url, .headers = {}, .body = {}}, [](const platform::URLCompletion& completion)
            { std::puts(completion.error ? "ended with an error" : "answered"); });
        task->resume();
    }
    // Long enough for the threads to be at work, and far shorter than the other waits.
    auto loop = std::make_shared<platform::RunLoop>();
    platform::runToEnd(loop, services.clock->sleep(50'000'000));
    auto endless =
        platform::Task<void>::start(services.background, services.clock->sleep(3'600'000'000'000));
    std::puts("main returns");
    std::fflush(stdout);
    return 0;
}
