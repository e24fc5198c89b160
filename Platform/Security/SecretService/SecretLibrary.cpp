#include "Platform/Security/SecretService/SecretLibrary.hpp"

#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

#include <dlfcn.h>

#include <map>
#include <mutex>

namespace platform
{
namespace
{

SecretServiceFailure absent(const std::string& name, const char* what)
{
    return SecretServiceFailure(KeychainStatus::notAvailable, "The library " + name + what,
                                "Install libsecret (on Debian: apt install libsecret-1-0), or use "
                                "the embedded keychain");
}

void* open(const std::string& name)
{
    void* handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle)
        throw absent(name, " is not installed, or does not load");
    return handle;
}

template <class Function>
void find(void* handle, const std::string& name, const char* symbol, Function& function)
{
    // Searches the libraries that this one depends on, too.
    function = reinterpret_cast<Function>(dlsym(handle, symbol));
    if (!function)
        throw absent(name, " is too old or not the expected one");
}

}  // namespace

const SecretLibrary& SecretLibrary::load(const std::string& name)
{
    static auto& mutex = *new std::mutex;
    static auto& loaded = *new std::map<std::string, std::unique_ptr<const SecretLibrary>>;
    const std::lock_guard lock(mutex);
    auto& library = loaded[name];
    if (!library)
    {
        std::unique_ptr<SecretLibrary> fresh(new SecretLibrary);
        void* const handle = open(name);
#define TESSERA_SECRET_FIND(function) find(handle, name, #function, fresh->function);
        TESSERA_SECRET_FUNCTIONS(TESSERA_SECRET_FIND)
#undef TESSERA_SECRET_FIND
        library = std::move(fresh);
    }
    return *library;
}

}  // namespace platform
