#include "Platform/Services/Services.hpp"

#include "Platform/Concurrency/WorkerThread.hpp"
#include "Platform/Networking/CurlURLSession.hpp"

#include <openssl/crypto.h>

#include <cstdlib>
#include <mutex>
#include <utility>

namespace platform
{
namespace
{

struct SystemServices
{
    WorkerThread worker;
    std::shared_ptr<CurlURLSession> session = std::make_shared<CurlURLSession>();
    Services services{.clock = systemClock(worker.executor()),
                      .device = systemDevice(),
                      .urlSession = session,
                      .background = worker.executor(),
                      .mainActor = nullptr,
                      .resourceFolders = systemResourceFolders()};
};

SystemServices& system()
{
    // Kept for ever, because the host's own static objects may still use it while the process ends.
    // Its threads must not: they would meet libraries that have cleaned up.
    static auto& instance = []() -> SystemServices&
    {
        // OpenSSL cleans up in an exit handler of its own. Ours must run before it, and handlers
        // run in the reverse order of their registration. (Asked for nothing, OpenSSL does not
        // begin.)
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
        auto& made = *new SystemServices;
        std::atexit(
            []
            {
                system().session->shutdown();
                system().worker.stop();
            });
        return made;
    }();
    return instance;
}

struct ProcessWide
{
    std::mutex mutex;
    Services current = systemServices();
};

ProcessWide& processWide()
{
    static auto& instance = *new ProcessWide;
    return instance;
}

}  // namespace

const Services& systemServices()
{
    return system().services;
}

Services services()
{
    auto& shared = processWide();
    const std::lock_guard lock(shared.mutex);
    return shared.current;
}

Services replaceServices(Services replacement)
{
    auto& shared = processWide();
    const std::lock_guard lock(shared.mutex);
    return std::exchange(shared.current, std::move(replacement));
}

}  // namespace platform
