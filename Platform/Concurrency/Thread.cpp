#include "Platform/Concurrency/Thread.hpp"

#include <pthread.h>
#include <signal.h>

namespace platform
{

std::thread startThread(const char* name, std::function<void()> body)
{
    // A thread inherits the mask of its maker: blocked here, so that no signal slips in between.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try
    {
        std::thread thread(std::move(body));
        pthread_setname_np(thread.native_handle(), name);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    }
    catch (...)
    {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

}  // namespace platform
