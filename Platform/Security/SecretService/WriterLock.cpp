#include "Platform/Security/SecretService/WriterLock.hpp"

#include "Platform/Basics/Descriptor.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace platform
{
namespace
{

namespace fs = std::filesystem;

SecretServiceFailure refused(const fs::path& folder, const char* why)
{
    return {KeychainStatus::notAvailable,
            "The folder of the lock between programs, " + folder.string() + ", " + why,
            "Remove it, or make it a folder of yours with mode 0700"};
}

SecretServiceFailure inputOutput(const fs::path& path)
{
    const bool full = errno == ENOSPC || errno == EDQUOT;
    return {full ? KeychainStatus::diskFull : KeychainStatus::inputOutput,
            "The lock between programs, " + path.string() + ", cannot be opened",
            full ? "Free some space on the disk" : "See that the folder is yours and writable"};
}

void checkFolder(const fs::path& folder)
{
    if (mkdir(folder.c_str(), 0700) != 0 && errno == ENOENT)
    {
        std::error_code ignored;
        fs::create_directories(folder.parent_path(), ignored);
        mkdir(folder.c_str(), 0700);
    }
    struct stat status{};
    if (lstat(folder.c_str(), &status) != 0)
        throw inputOutput(folder);
    if (!S_ISDIR(status.st_mode))
        throw refused(folder, "is a link or no folder");
    if (status.st_uid != geteuid())
        throw refused(folder, "belongs to someone else");
    if ((status.st_mode & 077) != 0)
        throw refused(folder, "is open to others");
}

/// Whether the open file is the one that others would open now.
bool isStillThere(int descriptor, const fs::path& file)
{
    struct stat ours{};
    struct stat theirs{};
    return fstat(descriptor, &ours) == 0 && lstat(file.c_str(), &theirs) == 0 &&
           ours.st_ino == theirs.st_ino && ours.st_dev == theirs.st_dev;
}

/// Until the lock file is closed by someone, or some time has passed. A wait for the lock itself
/// could not be ended. The holder closes the file when it is done, and dies with it closed; the
/// time is for a file that was taken away meanwhile, and for a system that is out of watches.
void waitForRelease(const Descriptor& watch, Deadline deadline)
{
    using std::chrono::milliseconds;
    const auto rest = std::chrono::duration_cast<milliseconds>(
        deadline - std::chrono::steady_clock::now() + milliseconds(1));
    const auto longest = watch.isOpen() ? milliseconds(200) : milliseconds(5);
    pollfd waiting{watch.number(), POLLIN, 0};
    poll(&waiting, 1, static_cast<int>(std::clamp(rest, milliseconds(0), longest).count()));
    std::array<char, 4096> events;
    while (watch.isOpen() && read(watch.number(), events.data(), events.size()) > 0)
        ;
}

}  // namespace

WriterLock::WriterLock(const fs::path& folder, Deadline deadline) : holder_(getpid())
{
    // Each working directory would have a lock of its own.
    if (!folder.is_absolute())
        throw SecretServiceFailure(KeychainStatus::notAvailable,
                                   "There is no folder for the lock between programs",
                                   "Set HOME, or configure the folder with its whole path");
    const auto file = folder / "secret-service.lock";
    checkFolder(folder);
    for (;;)
    {
        Descriptor opened(
            open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        if (!opened.isOpen())
            throw inputOutput(file);
        if (flock(opened.number(), LOCK_EX | LOCK_NB) != 0)
        {
            // Watched before it is tried again: a release in between is an event that waits.
            const Descriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
            if (watch.isOpen())
                inotify_add_watch(watch.number(), file.c_str(), IN_CLOSE_WRITE);
            while (flock(opened.number(), LOCK_EX | LOCK_NB) != 0)
            {
                if (errno != EWOULDBLOCK && errno != EINTR)
                    throw inputOutput(file);
                if (std::chrono::steady_clock::now() >= deadline)
                    throw SecretServiceFailure(
                        KeychainStatus::notAvailable,
                        "Another program holds the lock for writing to the Secret Service",
                        "See which program hangs while it holds " + file.string());
                waitForRelease(watch, deadline);
            }
        }
        if (isStillThere(opened.number(), file))
        {
            descriptor_ = opened.release();
            return;
        }
    }
}

WriterLock::~WriterLock()
{
    // A forked child may share the open file: closing alone would leave it the lock, and the child
    // must not take it from its parent.
    if (holder_ == getpid())
        flock(descriptor_, LOCK_UN);
    close(descriptor_);
}

fs::path WriterLock::defaultFolder()
{
    const auto variable = [](const char* name) -> fs::path
    {
        const char* value = std::getenv(name);
        return value && *value == '/' ? value : "";
    };
    if (const auto runtime = variable("XDG_RUNTIME_DIR"); !runtime.empty())
        return runtime / "tessera";
    // Not every program of the user is started with the variable.
    const fs::path usual = "/run/user/" + std::to_string(geteuid());
    std::error_code ignored;
    if (fs::is_directory(usual, ignored))
        return usual / "tessera";
    if (const auto data = variable("XDG_DATA_HOME"); !data.empty())
        return data / "tessera";
    const auto home = variable("HOME");
    return home.empty() ? home : home / ".local/share/tessera";
}

}  // namespace platform
