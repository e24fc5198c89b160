#include "Platform/Networking/FileBody.hpp"

#include "Platform/Networking/URLError.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace platform
{

// Without O_NONBLOCK, opening a pipe would wait for its writer.
FileBody::FileBody(const std::filesystem::path& file)
    : file_(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
{
    if (!file_.isOpen() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM))
        throw std::system_error(errno, std::generic_category(), "open");
    struct stat status = {};
    if (fstat(file_.number(), &status) != 0 || !S_ISREG(status.st_mode))
        throw URLError(URLError::Code::unreadableFile);
    size_ = status.st_size;
}

std::size_t FileBody::read(std::span<std::byte> room)
{
    const auto left = static_cast<std::size_t>(std::max<std::int64_t>(size_ - offset_, 0));
    const std::size_t wanted = std::min(room.size(), left);
    if (wanted == 0)
        return 0;
    ssize_t length = 0;
    do
        length = pread(file_.number(), room.data(), wanted, offset_);
    while (length < 0 && errno == EINTR);
    // Fewer bytes than were announced would leave the server waiting for the rest.
    if (length <= 0)
        throw URLError(URLError::Code::unreadableFile);
    offset_ += length;
    return static_cast<std::size_t>(length);
}

}  // namespace platform
