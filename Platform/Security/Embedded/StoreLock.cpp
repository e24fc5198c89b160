#include "Platform/Security/Embedded/StoreLock.hpp"

#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreFolder.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace platform
{

StoreLock::StoreLock(const std::filesystem::path& file, const Patience& patience)
{
    for (int round = 0; !tryLock(file); ++round)
    {
        if (!patience.pause(round))
            throw StoreFault(KeychainStatus::notAvailable,
                             "Another program holds the store: " + file.string(),
                             "Let the other program go on, or end it, and try again.");
    }
}

StoreLock::~StoreLock()
{
    // Said outright, because a process that another thread is just starting shares the descriptor.
    ::flock(descriptor_, LOCK_UN);
    ::close(descriptor_);
}

bool StoreLock::tryLock(const std::filesystem::path& file)
{
    privateFactsOf(file);
    const int descriptor =
        ::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600);
    if (descriptor < 0)
        throw StoreFault::ofSystem("Cannot open " + file.string(), errno);
    struct stat locked{};
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0 && ::fstat(descriptor, &locked) == 0 &&
        ((locked.st_mode & 0777) == 0600 || ::fchmod(descriptor, 0600) == 0))
    {
        // Somebody may have removed the file since: a lock on a file without a name excludes
        // nobody.
        const auto named = factsOf(file);
        if (named && named->number == locked.st_ino && named->device == locked.st_dev)
        {
            descriptor_ = descriptor;
            return true;
        }
        errno = EWOULDBLOCK;
    }
    const int error = errno;
    ::close(descriptor);
    if (error != EWOULDBLOCK && error != EINTR)
        throw StoreFault::ofSystem("Cannot lock " + file.string(), error);
    return false;
}

}  // namespace platform
