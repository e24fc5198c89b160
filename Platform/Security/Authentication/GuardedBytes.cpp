#include "Platform/Security/Authentication/GuardedBytes.hpp"

#include "Platform/Basics/Fatal.hpp"

#include <new>

#include <sodium.h>

namespace platform
{

void prepareSodium()
{
    static const bool ready = sodium_init() >= 0;
    if (!ready)
        fatal("libsodium cannot be used: the system gives it no randomness");
}

GuardedBytes::GuardedBytes(std::size_t size) : size_(size)
{
    prepareSodium();
    data_ = static_cast<unsigned char*>(sodium_malloc(size));
    if (!data_)
        throw std::bad_alloc();
}

GuardedBytes::~GuardedBytes()
{
    sodium_free(data_);
}

}  // namespace platform
