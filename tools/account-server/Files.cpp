#include "tools/account-server/Files.hpp"

#include "tools/account-server/Failure.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace accountserver
{
namespace fs = std::filesystem;

namespace
{

[[noreturn]] void fail(const std::string& what, const fs::path& file)
{
    const auto reason = std::generic_category().message(errno);
    throw Failure(ExitCode::state, what + " " + file.string() + " (" + reason +
                                       "). Check the path and its permissions.");
}

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty())
    {
        const auto written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

void makePrivateFolder(const fs::path& folder)
{
    std::error_code ignored;
    if (folder.has_parent_path())
        fs::create_directories(folder.parent_path(), ignored);
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        fail("Cannot make the folder", folder);
    struct stat status = {};
    if (::stat(folder.c_str(), &status) != 0)
        fail("Cannot look at the folder", folder);
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid())
        throw Failure(ExitCode::state,
                      folder.string() + " is not a folder of this user. Choose another --state.");
    if ((status.st_mode & 077) == 0)
        return;
    // What others put there before cannot be trusted, and a shared folder is not to be taken away.
    if (!fs::is_empty(folder))
        throw Failure(ExitCode::state, folder.string() +
                                           " is open to other users. Close it with chmod 700, or "
                                           "choose another --state.");
    if (::chmod(folder.c_str(), 0700) != 0)
        fail("Cannot close to others the folder", folder);
}

std::optional<std::string> readFile(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
    {
        if (errno == ENOENT)
            return std::nullopt;
        fail("Cannot read", file);
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return std::move(text).str();
}

void writeFile(const fs::path& file, std::string_view text, int mode)
{
    auto temporary = file;
    temporary += ".new." + std::to_string(::getpid());
    const int descriptor =
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (descriptor < 0)
        fail("Cannot write", temporary);
    bool written = ::fchmod(descriptor, static_cast<mode_t>(mode)) == 0;
    written = written && writeAll(descriptor, text) && ::fsync(descriptor) == 0;
    written = ::close(descriptor) == 0 && written;
    if (!written || ::rename(temporary.c_str(), file.c_str()) != 0)
    {
        const int reason = errno;
        ::unlink(temporary.c_str());
        errno = reason;
        fail("Cannot write", file);
    }
}

FolderLock::FolderLock(const fs::path& folder)
{
    const auto file = folder / "lock";
    descriptor_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor_ < 0)
        fail("Cannot open", file);
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0)
    {
        ::close(descriptor_);
        throw Failure(ExitCode::state, "Another server uses the state folder " + folder.string() +
                                           ". Stop it or choose another --state.");
    }
}

FolderLock::~FolderLock()
{
    ::close(descriptor_);
}

}  // namespace accountserver
