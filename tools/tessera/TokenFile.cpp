#include "tools/tessera/TokenFile.hpp"

#include "tools/tessera/Failure.hpp"
#include "tools/tessera/Input.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace commandline
{
namespace
{

using platform::SecretBytes;
using platform::SecretString;

/// A descriptor that is closed in any case.
struct Descriptor
{
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor()
    {
        if (number >= 0)
            ::close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    const int number;
};

bool writeAll(int file, std::string_view text)
{
    while (!text.empty())
    {
        const auto written = ::write(file, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

Failure notRegular(const std::filesystem::path& path, mode_t mode)
{
    const std::string kind = S_ISLNK(mode)   ? "a symbolic link"
                             : S_ISDIR(mode) ? "a folder"
                                             : "no regular file";
    return Failure({ExitCode::tokenFile, "notRegular",
                    "The token file " + path.string() + " is " + kind + ".",
                    "Name another file with --token-file."});
}

}  // namespace

void TokenFile::fail(const std::string& what, int reason) const
{
    throw Failure({ExitCode::tokenFile, "inaccessible",
                   "The token file " + path_.string() + " cannot be " + what + " (" +
                       std::generic_category().message(reason) + ").",
                   "Check the path and its permissions."});
}

std::filesystem::path TokenFile::folder() const
{
    return path_.has_parent_path() ? path_.parent_path() : ".";
}

bool TokenFile::exists() const
{
    struct stat status = {};
    if (::lstat(path_.c_str(), &status) != 0)
    {
        if (errno != ENOENT)
            fail("looked at", errno);
        return false;
    }
    if (!S_ISREG(status.st_mode))
        throw notRegular(path_, status.st_mode);
    return true;
}

void TokenFile::checkWritable() const
{
    if (!path_.has_filename())
        throw notRegular(path_, S_IFDIR);
    exists();
    if (::faccessat(AT_FDCWD, folder().c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        fail("written", errno);
}

void TokenFile::write(const SecretString& token) const
{
    checkWritable();
    // In the same folder, for only there can it take the file's place in one step.
    auto name = (folder() / ("." + path_.filename().string() + ".XXXXXX")).string();
    const Descriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (file.number < 0)
        fail("written", errno);
    const bool written = ::fchmod(file.number, 0600) == 0 && writeAll(file.number, token.view()) &&
                         writeAll(file.number, "\n") && ::fsync(file.number) == 0;
    if (!written || ::rename(name.c_str(), path_.c_str()) != 0)
    {
        const int reason = errno;
        ::unlink(name.c_str());
        fail("written", reason);
    }
    // Without this the new name may be lost with the power; not every file system can do it.
    const Descriptor around(::open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (around.number >= 0)
        ::fsync(around.number);
}

SecretString TokenFile::read() const
{
    // Without waiting, for a pipe without a writer would hold the program up.
    const Descriptor file(
        ::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status = {};
    if (file.number < 0 && errno == ELOOP)
        throw notRegular(path_, S_IFLNK);
    if (file.number < 0 || ::fstat(file.number, &status) != 0)
        fail("read", errno);
    if (!S_ISREG(status.st_mode))
        throw notRegular(path_, status.st_mode);

    SecretBytes content;
    content.resize(tokenSizeLimit + 1);
    std::size_t size = 0;
    while (size < content.size())
    {
        const auto count =
            ::read(file.number, content.mutableView().data() + size, content.size() - size);
        if (count < 0 && errno != EINTR)
            fail("read", errno);
        if (count == 0)
            break;
        if (count > 0)
            size += static_cast<std::size_t>(count);
    }
    content.resize(size);
    return tokenIn(SecretString(std::move(content)).view(), "The token file " + path_.string());
}

void TokenFile::remove() const
{
    if (exists() && ::unlink(path_.c_str()) != 0 && errno != ENOENT)
        fail("removed", errno);
}

}  // namespace commandline
