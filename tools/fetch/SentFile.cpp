#include "tools/fetch/SentFile.hpp"

#include "tools/fetch/Failure.hpp"
#include "tools/fetch/ProgressText.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace fetch
{
namespace
{

using commandline::Report;

Report kept(std::string name, const std::string& why, std::string next)
{
    return {commandline::ExitCode::internal, std::move(name),
            "The server has accepted the file, but it was kept: " + why + ".", std::move(next)};
}

}  // namespace

SentFile::SentFile(std::filesystem::path path) : path_(std::move(path))
{
    if (const int error = look(path_, state_))
        throw unreadable(path_, std::generic_category().message(error));
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path_, ignored))
        throw unreadable(path_, "it is no regular file");
}

int SentFile::look(const std::filesystem::path& path, State& state)
{
    struct stat found{};
    if (::stat(path.c_str(), &found) != 0)
        return errno;
    state = {found.st_dev, found.st_ino, found.st_size, found.st_mtim.tv_sec,
             found.st_mtim.tv_nsec};
    return 0;
}

std::optional<Report> SentFile::remove(std::int64_t sent) const
{
    if (sent < size())
        return kept("notSentWhole",
                    "only " + sizeText(sent) + " of " + sizeText(size()) + " were sent",
                    "Check what the server has, and send it again.");
    State now;
    // Somebody else may have been faster.
    if (const int error = look(path_, now); error == ENOENT)
        return std::nullopt;
    if (now != state_ || sent != size())
        return kept("fileChanged", "it was changed meanwhile", "Send it again, or remove it.");
    // Unlike the library's function, this one takes no empty folder.
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT)
        return kept("deletion",
                    "it could not be removed (" + std::generic_category().message(errno) + ")",
                    "Remove it yourself.");
    return std::nullopt;
}

}  // namespace fetch
