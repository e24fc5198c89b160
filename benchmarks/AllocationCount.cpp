#include "benchmarks/AllocationCount.hpp"

#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>
#include <memory_resource>

#include <openssl/crypto.h>

// What glibc's own names of the functions stand for; they are there for programs that replace them.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace
{

thread_local std::size_t counted = 0;
thread_local std::size_t countedOfSecrets = 0;
thread_local std::size_t countedOfOpenSSL = 0;

void* opensslMalloc(std::size_t size, const char*, int)
{
    ++countedOfOpenSSL;
    return __libc_malloc(size);
}

void* opensslRealloc(void* memory, std::size_t size, const char*, int)
{
    ++countedOfOpenSSL;
    return __libc_realloc(memory, size);
}

void opensslFree(void* memory, const char*, int)
{
    __libc_free(memory);
}

}  // namespace

// The pool's own function, which its table of virtual functions reaches by name: the program's
// definition comes before the library's.
void* std::pmr::unsynchronized_pool_resource::do_allocate(std::size_t size, std::size_t alignment)
{
    using Function = void* (*)(void*, std::size_t, std::size_t);
    constexpr const char* name = "_ZNSt3pmr28unsynchronized_pool_resource11do_allocateEmm";
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    ++countedOfSecrets;
    return original(this, size, alignment);
}

bool allocationcount::tellOpenSSLApart()
{
    return CRYPTO_set_mem_functions(opensslMalloc, opensslRealloc, opensslFree) == 1;
}

std::size_t allocationcount::ofHeap() noexcept
{
    return counted;
}

std::size_t allocationcount::ofSecrets() noexcept
{
    return countedOfSecrets;
}

std::size_t allocationcount::ofOpenSSL() noexcept
{
    return countedOfOpenSSL;
}

extern "C" {
void* malloc(std::size_t size)
{
    ++counted;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    ++counted;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size)
{
    ++counted;
    return __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    ++counted;
    return __libc_memalign(alignment, size);
}

void* memalign(std::size_t alignment, std::size_t size)
{
    ++counted;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size)
{
    ++counted;
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}

void free(void* memory)
{
    __libc_free(memory);
}
}
