#include "Tessera/Session/HistoryFile.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace tessera
{
namespace
{

namespace fs = std::filesystem;
using platform::Diagnostic;

class Descriptor
{
public:
    explicit Descriptor(int value) noexcept : value_(value) {}
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Descriptor()
    {
        if (value_ < 0)
            return;
        // Said outright, because a process that another thread is just starting shares it.
        ::flock(value_, LOCK_UN);
        ::close(value_);
    }

    int value() const noexcept { return value_; }
    explicit operator bool() const noexcept { return value_ >= 0; }

private:
    int value_;
};

Diagnostic failed(const char* attempt, const fs::path& path)
{
    const int error = errno;
    const bool full = error == ENOSPC || error == EDQUOT;
    return {"account history",
            attempt + path.string() + ": " + std::generic_category().message(error),
            full ? "Free some space on the disk."
                 : "See that the place is there and that the user may write to it."};
}

Diagnostic refused(const fs::path& path, const char* fault, std::string nextStep)
{
    return {"account history", path.string() + fault, std::move(nextStep)};
}

void requireOwn(const struct stat& found, const fs::path& path)
{
    if (found.st_uid != ::geteuid())
        throw refused(path, " belongs to another user.",
                      "Give it to the user who runs the program, or move it away.");
}

void makeFolder(const fs::path& folder)
{
    struct stat found{};
    if (::lstat(folder.c_str(), &found) == 0)
        return;
    if (folder.has_relative_path())
        makeFolder(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        throw failed("Cannot make the folder ", folder);
}

/// Nothing where there is no folder. What is done below goes through the open folder, so that a
/// link put in its place meanwhile leads nowhere.
Descriptor openFolder(const fs::path& folder)
{
    if (!folder.is_absolute())
        throw refused(folder, " is not an absolute path.", "Name the folder with its whole path.");
    Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened)
    {
        if (errno == ENOENT)
            return opened;
        if (errno == ELOOP || errno == ENOTDIR)
            throw refused(folder, " is a link or no folder.", "Put a real folder in its place.");
        throw failed("Cannot open the folder ", folder);
    }
    struct stat found{};
    if (::fstat(opened.value(), &found) != 0)
        throw failed("Cannot look at ", folder);
    requireOwn(found, folder);
    if ((found.st_mode & 022) != 0)
        throw refused(folder, " can be written to by other users.",
                      "Run: chmod 700 " + folder.string());
    return opened;
}

class OpenHistory
{
public:
    OpenHistory(const Descriptor& folder, const fs::path& path)
        : folder_(folder), path_(path), name_(path.filename())
    {}

    /// Nothing where there is no file and `flags` do not make it. It never waits for what is at the
    /// other end of a pipe or a device.
    Descriptor open(int flags) const
    {
        constexpr int safe = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
        Descriptor opened(::openat(folder_.value(), name_.c_str(), flags | safe, 0600));
        if (!opened)
        {
            if (errno == ENOENT && (flags & O_CREAT) == 0)
                return opened;
            if (errno == ELOOP)
                throw refused(path_, " is a link.", "Move it away.");
            if (errno == EISDIR || errno == ENXIO)
                throw refused(path_, " is not a regular file.", "Move it away.");
            throw failed("Cannot open ", path_);
        }
        struct stat found{};
        if (::fstat(opened.value(), &found) != 0)
            throw failed("Cannot look at ", path_);
        if (!S_ISREG(found.st_mode))
            throw refused(path_, " is not a regular file.", "Move it away.");
        requireOwn(found, path_);
        if ((found.st_mode & 0777) != 0600 && ::fchmod(opened.value(), 0600) != 0)
            throw failed("Cannot make private ", path_);
        return opened;
    }

    /// The file and whether it is locked. What is locked is the file that has the name now: a lock
    /// on one that was replaced meanwhile excludes nobody, and a line in it is lost.
    std::pair<Descriptor, bool> openToWrite() const
    {
        using std::chrono::steady_clock;
        const auto deadline = steady_clock::now() + std::chrono::seconds(1);
        auto file = open(O_RDWR | O_APPEND | O_CREAT);
        for (int round = 0;; ++round)
        {
            const bool locked = ::flock(file.value(), LOCK_EX | LOCK_NB) == 0;
            // A file system that has no locks is not waited for.
            const bool held = !locked && (errno == EWOULDBLOCK || errno == EINTR);
            const steady_clock::duration left = deadline - steady_clock::now();
            // Nothing wakes one who waits for a file lock: all that is left is to look again.
            if (held && left > left.zero())
                std::this_thread::sleep_for(std::min<steady_clock::duration>(
                    left, std::chrono::microseconds(200) * (1 << std::min(round, 3))));
            else if (hasName(file))
                return {std::move(file), locked};
            else
                file = open(O_RDWR | O_APPEND | O_CREAT);
        }
    }

    /// Puts `content` in the place of the locked `file`, of which the bytes up to `end` were read.
    void replace(const Descriptor& file, off_t end, std::string_view content) const
    {
        // One that is there was left by a killed program, for there is one lock.
        const auto draftName = name_ + ".draft";
        ::unlinkat(folder_.value(), draftName.c_str(), 0);
        const Descriptor draft(
            ::openat(folder_.value(), draftName.c_str(),
                     O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!draft)
            throw failed("Cannot shorten ", path_);
        // It gets the name locked, so that nobody cuts it before the late lines are in it.
        ::flock(draft.value(), LOCK_EX | LOCK_NB);
        if (!written(draft, content) || ::fdatasync(draft.value()) != 0 ||
            ::renameat(folder_.value(), draftName.c_str(), folder_.value(), name_.c_str()) != 0)
        {
            const auto failure = failed("Cannot shorten ", path_);
            ::unlinkat(folder_.value(), draftName.c_str(), 0);
            throw failure;
        }
        // Lines of programs that did not wait for the lock, should this one have been stopped.
        write(draft, bytesFrom(file, end));
    }

    void write(const Descriptor& file, std::string_view bytes) const
    {
        if (!written(file, bytes))
            throw failed("Cannot write to ", path_);
    }

    off_t sizeOf(const Descriptor& file) const
    {
        struct stat found{};
        if (::fstat(file.value(), &found) != 0)
            throw failed("Cannot look at ", path_);
        return found.st_size;
    }

    /// What follows `start`, up to the size of a tail.
    std::string bytesFrom(const Descriptor& file, off_t start) const
    {
        std::string bytes(HistoryFile::tailSize, '\0');
        std::size_t size = 0;
        while (size < bytes.size())
        {
            const auto got = ::pread(file.value(), bytes.data() + size, bytes.size() - size,
                                     start + static_cast<off_t>(size));
            if (got < 0 && errno != EINTR)
                throw failed("Cannot read ", path_);
            if (got == 0)
                break;
            size += got < 0 ? 0 : static_cast<std::size_t>(got);
        }
        bytes.resize(size);
        return bytes;
    }

private:
    static bool written(const Descriptor& file, std::string_view bytes)
    {
        while (!bytes.empty())
        {
            const auto count = ::write(file.value(), bytes.data(), bytes.size());
            if (count < 0 && errno != EINTR)
                return false;
            bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
        }
        return true;
    }

    bool hasName(const Descriptor& file) const
    {
        struct stat ours{};
        struct stat named{};
        return ::fstat(file.value(), &ours) == 0 &&
               ::fstatat(folder_.value(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
               ours.st_ino == named.st_ino && ours.st_dev == named.st_dev;
    }

    const Descriptor& folder_;
    const fs::path path_;
    const std::string name_;
};

struct Tail
{
    /// Whole lines only.
    std::string lines;
    /// Where the bytes begin and end that were looked at.
    off_t start = 0;
    off_t end = 0;
};

Tail tailOf(const OpenHistory& history, const Descriptor& file)
{
    Tail tail;
    const auto size = history.sizeOf(file);
    tail.start = std::max<off_t>(0, size - static_cast<off_t>(HistoryFile::tailSize));
    tail.lines = history.bytesFrom(file, tail.start);
    tail.end = tail.start + static_cast<off_t>(tail.lines.size());
    tail.lines.erase(tail.lines.rfind('\n') + 1);
    if (tail.start > 0 && !tail.lines.empty())
        tail.lines.erase(0, tail.lines.find('\n') + 1);
    return tail;
}

}  // namespace

void HistoryFile::append(std::string_view line, std::size_t most,
                         const std::function<std::string(std::string_view)>& shortened) const
{
    if (folder_.is_absolute())
        makeFolder(folder_);
    const auto folder = openFolder(folder_);
    const OpenHistory history(folder, folder_ / name_);
    const auto [file, locked] = history.openToWrite();

    // A program that was killed, or a full disk, left the last line without its end.
    const auto size = history.sizeOf(file);
    std::string bytes = size > 0 && history.bytesFrom(file, size - 1) != "\n" ? "\n" : "";
    history.write(file, bytes.append(line));

    const auto tail = tailOf(history, file);
    const auto lines = static_cast<std::size_t>(std::ranges::count(tail.lines, '\n'));
    if (locked && (tail.start > 0 || lines > most))
        history.replace(file, tail.end, shortened(tail.lines));
}

std::string HistoryFile::tail() const
{
    const auto folder = openFolder(folder_);
    if (!folder)
        return {};
    const OpenHistory history(folder, folder_ / name_);
    const auto file = history.open(O_RDONLY);
    return file ? tailOf(history, file).lines : std::string();
}

}  // namespace tessera
