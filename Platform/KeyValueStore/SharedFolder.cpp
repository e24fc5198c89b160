#include "Platform/KeyValueStore/SharedFolder.hpp"

#include "Platform/Basics/Descriptor.hpp"
#include "Platform/KeyValueStore/SharedFolderNames.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <system_error>

namespace platform
{
namespace
{

/// What else is in the folder must not hold anybody up.
constexpr std::size_t mostNames = 4096;
constexpr std::time_t secondsToWrite = 60;

std::string nextStepFor(int error)
{
    switch (error)
    {
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return "Make room for the user's files.";
        case EACCES:
        case EPERM:
        case EROFS:
            return "Let the user write there.";
        case EMFILE:
        case ENFILE:
            return "Let the program open more files.";
        default:
            return "See whether the file system is in order.";
    }
}

void makeFolder(const std::filesystem::path& folder)
{
    std::error_code ignored;
    const auto parent = folder.parent_path();
    if (parent != folder && !std::filesystem::exists(parent, ignored))
        makeFolder(parent);
    // Another program may be faster, be it to make this one or to remove those above.
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST && errno != ENOENT)
        throw SharedFolderFault::ofSystem("Cannot make the folder " + folder.string(), errno);
}

void requirePrivate(const std::filesystem::path& folder, const struct stat& found)
{
    const auto name = folder.string();
    if (S_ISLNK(found.st_mode))
        throw SharedFolderFault{name + " is a symbolic link.", "Put a folder in its place."};
    if (!S_ISDIR(found.st_mode))
        throw SharedFolderFault{name + " is not a folder.", "Move it away."};
    if (found.st_uid != ::geteuid())
        throw SharedFolderFault{name + " belongs to another user.",
                                "Give it to the user who runs the program."};
    if ((found.st_mode & 077) != 0)
        throw SharedFolderFault{name + " is open to other users.", "Run: chmod 700 " + name};
}

bool fill(const Descriptor& draft, std::string_view value)
{
    while (!value.empty())
    {
        const auto written = ::write(draft.number(), value.data(), value.size());
        if (written < 0 && errno != EINTR)
            return false;
        value.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

SharedFolderFault SharedFolderFault::ofSystem(const std::string& attempt, int error)
{
    return {attempt + ": " + std::generic_category().message(error) + ".", nextStepFor(error)};
}

SharedFolder::Identity SharedFolder::require() const
{
    if (!path_.is_absolute())
        throw SharedFolderFault{"No place is known for what programs share.",
                                "Set HOME to an absolute path."};
    struct stat found{};
    bool isThere = ::lstat(path_.c_str(), &found) == 0;
    for (int attempt = 0; !isThere && errno == ENOENT && attempt < 100; ++attempt)
    {
        makeFolder(path_);
        isThere = ::lstat(path_.c_str(), &found) == 0;
    }
    if (!isThere)
        throw SharedFolderFault::ofSystem("Cannot look at " + path_.string(), errno);
    requirePrivate(path_, found);
    return {found.st_dev, found.st_ino};
}

void SharedFolder::write(const std::string& fileName, std::string_view value,
                         const std::string& writer) const
{
    const auto draft = path_ / draftNameOfWriter(writer);
    const auto file = path_ / fileName;
    for (int attempt = 0; attempt < 100; ++attempt)
    {
        require();
        if (tryToWrite(draft, file, value))
            return;
    }
    throw SharedFolderFault{file.string() + " cannot be written: its folder vanishes.",
                            "Find the program that removes it."};
}

/// False where the folder went away, or somebody took the draft for a killed program's.
bool SharedFolder::tryToWrite(const std::filesystem::path& draft, const std::filesystem::path& file,
                              std::string_view value) const
{
    const auto fault = [&](const char* attempt)
    {
        const int error = errno;
        ::unlink(draft.c_str());
        return SharedFolderFault::ofSystem(attempt + file.string(), error);
    };
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    Descriptor open(::open(draft.c_str(), flags, 0600));
    if (!open.isOpen() && errno == ENOENT)
        return false;
    if (!open.isOpen())
        throw fault("Cannot create a draft of ");
    if (!fill(open, value) || !open.close())
        throw fault("Cannot write ");
    if (::rename(draft.c_str(), file.c_str()) != 0)
    {
        if (errno == ENOENT)
            return false;
        throw fault("Cannot replace ");
    }
    return true;
}

std::optional<std::string> SharedFolder::read(const std::string& fileName) const
{
    const auto file = path_ / fileName;
    const Descriptor open(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat found{};
    if (!open.isOpen() || ::fstat(open.number(), &found) != 0 || !S_ISREG(found.st_mode) ||
        found.st_uid != ::geteuid())
        return std::nullopt;
    std::array<char, longestValue + 1> bytes;
    std::size_t size = 0;
    while (size < bytes.size())
    {
        const auto got = ::read(open.number(), bytes.data() + size, bytes.size() - size);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            return std::string(bytes.data(), size);
        size += static_cast<std::size_t>(got);
    }
    return std::nullopt;
}

std::vector<std::string> SharedFolder::keys() const
{
    std::vector<std::string> found;
    for (const auto& name : names())
        if (auto key = keyOfFileName(name))
            found.push_back(std::move(*key));
    return found;
}

void SharedFolder::removeLeftDrafts() const
{
    const auto now = std::time(nullptr);
    for (const auto& name : names())
    {
        struct stat found{};
        const auto draft = path_ / name;
        // One that is still written is tried again by its writer.
        if (writerOfDraftName(name) && ::lstat(draft.c_str(), &found) == 0 &&
            now - found.st_mtime > secondsToWrite)
            ::unlink(draft.c_str());
    }
}

std::vector<std::string> SharedFolder::names() const
{
    std::vector<std::string> found;
    std::error_code error;
    for (std::filesystem::directory_iterator at(path_, error), end;
         !error && at != end && found.size() < mostNames; at.increment(error))
        found.push_back(at->path().filename().string());
    return found;
}

}  // namespace platform
