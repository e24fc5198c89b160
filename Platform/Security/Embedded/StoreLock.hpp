#pragma once

#include "Platform/Security/Embedded/Patience.hpp"

#include <filesystem>

namespace platform
{

/// Held by the one program that makes or replaces the files of a store: the key file above all, of
/// which two programs that start together must not make two. Items are locked by SQLite instead.
/// Throws `StoreFault` when another program does not let go before the deadline.
class StoreLock
{
public:
    StoreLock(const std::filesystem::path& file, const Patience& patience);
    ~StoreLock();
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

private:
    bool tryLock(const std::filesystem::path& file);

    int descriptor_ = -1;
};

}  // namespace platform
