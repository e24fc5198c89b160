#include "tools/fetch/Output.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "tools/shared/Failure.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <system_error>

namespace fetch
{

using commandline::ExitCode;
using commandline::Failure;

namespace
{

constexpr mode_t permissions = 0777;

}  // namespace

void writeAll(int descriptor, std::span<const std::byte> bytes,
              const commandline::Interrupts& interrupts)
{
    // As much as a pipe that can be written to takes without making the writer wait.
    constexpr std::size_t piece = 4096;
    while (!bytes.empty())
    {
        pollfd waiting[] = {{descriptor, POLLOUT, 0}, {interrupts.descriptor(), POLLIN, 0}};
        if (::poll(waiting, 2, -1) < 0)
        {
            if (errno == EINTR)
                continue;
            throw std::system_error(errno, std::generic_category());
        }
        if (waiting[1].revents != 0)
            throw platform::CancellationError();
        const auto size = ::write(descriptor, bytes.data(), std::min(bytes.size(), piece));
        if (size >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(size));
        else if (errno != EINTR && errno != EAGAIN)
            throw std::system_error(errno, std::generic_category());
    }
}

OutputFile::OutputFile(const std::filesystem::path& path) : path_(path), target_(path)
{
    std::error_code absent;
    const auto followed = std::filesystem::canonical(path, absent);
    if (!absent)
        target_ = followed;
    struct stat found{};
    const bool exists = ::stat(target_.c_str(), &found) == 0;
    if (exists && S_ISDIR(found.st_mode))
        fail(EISDIR);
    if (exists && !S_ISREG(found.st_mode))
    {
        openAsItIs();
        return;
    }
    // A new name in its folder would replace it, but whoever protects a file means its content.
    if (exists && ::access(target_.c_str(), W_OK) != 0)
        fail(errno);
    if (exists)
        mode_ = found.st_mode & permissions;
    openBeside();
}

OutputFile::~OutputFile()
{
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

void OutputFile::openAsItIs()
{
    asItIs_ = true;
    // A pipe without a reader would otherwise be waited for, deaf to signals.
    descriptor_ = ::open(target_.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor_ < 0)
        fail(errno);
}

void OutputFile::openBeside()
{
    constexpr mode_t ordinary = 0666;
    const mode_t mode = mode_.value_or(ordinary);
    const auto folder = target_.has_parent_path() ? target_.parent_path() : ".";
    // The way back from a descriptor to a name goes through there.
    if (::access("/proc/self/fd", X_OK) == 0)
        descriptor_ = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    while (descriptor_ < 0)
    {
        temporary_ = freshName();
        descriptor_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (descriptor_ < 0 && errno != EEXIST)
        {
            const int error = errno;
            temporary_.clear();
            fail(error);
        }
    }
}

void OutputFile::write(std::span<const std::byte> content,
                       const commandline::Interrupts& interrupts)
{
    try
    {
        writeAll(descriptor_, content, interrupts);
    }
    catch (const std::system_error& error)
    {
        fail(error.code().value());
    }
    if (!asItIs_)
        putInPlace();
}

void OutputFile::putInPlace()
{
    // What was taken from it when the file was made.
    if (mode_ && ::fchmod(descriptor_, *mode_) != 0)
        fail(errno);
    // A disk may say only here that it is full.
    if (::fsync(descriptor_) != 0)
        fail(errno);
    if (temporary_.empty())
        giveName();
    if (::rename(temporary_.c_str(), target_.c_str()) != 0)
        fail(errno);
    temporary_.clear();
}

void OutputFile::giveName()
{
    const auto unnamed = "/proc/self/fd/" + std::to_string(descriptor_);
    auto name = freshName();
    while (::linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0)
    {
        if (errno != EEXIST)
            fail(errno);
        name = freshName();
    }
    temporary_ = std::move(name);
}

std::filesystem::path OutputFile::freshName() const
{
    std::random_device random;
    auto name = target_;
    return name.replace_filename(".tessera-fetch." + std::to_string(random()));
}

void OutputFile::fail(int error) const
{
    throw Failure({ExitCode::internal, "output",
                   "The file \"" + path_.string() + "\" could not be written (" +
                       std::generic_category().message(error) + ").",
                   "Check the place that it goes to."});
}

}  // namespace fetch
