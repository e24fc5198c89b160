#include "tests/support/HeldNames.hpp"

#include <dlfcn.h>
#include <netdb.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>

namespace
{

struct Names
{
    std::mutex mutex;
    std::condition_variable changed;
    bool held = false;
    int waiting = 0;
};

// Never torn down: a look-up may still wait when the program ends.
Names& names()
{
    static Names& instance = *new Names;
    return instance;
}

void waitWhileHeld()
{
    Names& shared = names();
    std::unique_lock lock(shared.mutex);
    ++shared.waiting;
    shared.changed.notify_all();
    shared.changed.wait(lock, [&] { return !shared.held; });
    --shared.waiting;
}

}  // namespace

HeldNames::HeldNames()
{
    const std::lock_guard lock(names().mutex);
    names().held = true;
}

HeldNames::~HeldNames()
{
    const std::lock_guard lock(names().mutex);
    names().held = false;
    names().changed.notify_all();
}

bool HeldNames::waitForLookUps(int count) const
{
    std::unique_lock lock(names().mutex);
    return names().changed.wait_for(lock, std::chrono::seconds(10),
                                    [count] { return names().waiting >= count; });
}

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result)
{
    using LookUp = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto real = reinterpret_cast<LookUp>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (!node || !std::string_view(node).ends_with(".held.test"))
        return real(node, service, hints, result);
    waitWhileHeld();
    return EAI_NONAME;
}
