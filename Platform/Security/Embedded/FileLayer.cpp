#include "Platform/Security/Embedded/FileLayer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace platform
{
namespace
{

int closeKeepingError(int descriptor)
{
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return -1;
}

}  // namespace

int FileLayer::makeFolder(const std::filesystem::path& folder)
{
    // A umask can only take bits away, so nobody else gets in between the two calls.
    return ::mkdir(folder.c_str(), 0700) == 0 ? ::chmod(folder.c_str(), 0700) : -1;
}

int FileLayer::createExclusively(const std::filesystem::path& file)
{
    const int descriptor =
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor >= 0 && ::fchmod(descriptor, 0600) != 0)
    {
        return closeKeepingError(descriptor);
    }
    return descriptor;
}

ssize_t FileLayer::write(int descriptor, std::span<const std::byte> bytes)
{
    return ::write(descriptor, bytes.data(), bytes.size());
}

int FileLayer::sync(int descriptor)
{
    return ::fsync(descriptor);
}

int FileLayer::close(int descriptor)
{
    return ::close(descriptor);
}

int FileLayer::link(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return ::link(from.c_str(), to.c_str());
}

int FileLayer::rename(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return ::rename(from.c_str(), to.c_str());
}

int FileLayer::remove(const std::filesystem::path& file)
{
    return ::unlink(file.c_str());
}

int FileLayer::syncFolder(const std::filesystem::path& folder)
{
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return -1;
    }
    return ::fsync(descriptor) == 0 ? ::close(descriptor) : closeKeepingError(descriptor);
}

}  // namespace platform
