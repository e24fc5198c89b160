// Ends while the services work: a transfer waits for a server that never answers, a timer for its
// time, a participant of the key-value store for news, and what was handed over for the disk has
// not been done. The process must leave nothing that runs on, neither a crash nor a hang.

#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Networking/URLSession.hpp"
#include "Platform/Services/Services.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <boost/asio/post.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
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

/// What the services have ended, and what they end with.
std::atomic<int> failedTransfers = 0;
std::atomic<int> stored = 0;
std::promise<void> exitBegins;
char stateFolder[] = "/tmp/tessera-exit-XXXXXX";
std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
std::unique_ptr<platform::UbiquitousKeyValueStore::Participant> participant;

void joinKeyValueStore(const platform::Services& services)
{
    participant = services.keyValueStore->join(platform::executorOf(loop), [](const auto&) {});
    participant->setString("1", "key");
    if (!participant->synchronize())
        std::abort();
}

void handOverForTheDisk(const platform::Services& services)
{
    boost::asio::post(services.storage,
                      [begins = exitBegins.get_future().share()] { begins.wait(); });
    boost::asio::post(services.storage,
                      []
                      {
                          const auto value = participant->string("key");
                          stored += value == "1" ? 1 : 0;
                      });
}

}  // namespace

int main()
{
    if (!::mkdtemp(stateFolder))
        std::abort();
    ::setenv("XDG_STATE_HOME", stateFolder, 1);
    // Handlers run in the reverse order of their registration: this one after the services' own.
    std::atexit(
        []
        {
            const bool announced = participant->synchronize();
            std::filesystem::remove_all(stateFolder);
            std::printf("%d transfers failed, %d stored, %s\n", failedTransfers.load(),
                        stored.load(), announced ? "still announcing" : "no announcement");
        });
    const auto services = platform::services();
    std::atexit([] { exitBegins.set_value(); });
    joinKeyValueStore(services);
    handOverForTheDisk(services);
    const auto port = std::to_string(silentPort());
    for (const std::string scheme : {"https", "http"})
    {
        const auto url = platform::URL::parse(scheme + "://127.0.0.1:" + port + "/");
        auto task = services.urlSession->dataTask({.url = *url, .headers = {}, .body = {}},
                                                  [](const platform::URLCompletion& completion)
                                                  { failedTransfers += completion.error ? 1 : 0; });
        task->resume();
    }
    // Long enough for the threads to be at work, and far shorter than the other waits.
    platform::runToEnd(loop, services.clock->sleep(50'000'000));
    auto endless =
        platform::Task<void>::start(services.background, services.clock->sleep(3'600'000'000'000));
    std::puts("main returns");
    std::fflush(stdout);
    return 0;
}
