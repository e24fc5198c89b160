#include "Platform/KeyValueStore/FolderWatch.hpp"

#include "Platform/KeyValueStore/SharedFolderNames.hpp"

#include <sys/inotify.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

namespace platform
{
namespace
{

SharedFolderFault cannotWatch(int error)
{
    return {std::string("What other programs share is not noticed: inotify says \"") +
                ::strerrordesc_np(error) + "\".",
            error == ENOSPC ? "Raise fs.inotify.max_user_watches."
                            : "Raise fs.inotify.max_user_instances, and the program's limit of "
                              "open files."};
}

}  // namespace

bool FolderWatch::begin(const SharedFolder& folder)
{
    auto found = folder.require();
    if (watched_ == found)
        return false;
    watched_.reset();
    // The folder may be another one by the time it is watched.
    for (int attempt = 0; attempt < 100; ++attempt)
    {
        addWatch(folder);
        const auto now = folder.require();
        // A new folder may have the number of the old one.
        if (std::exchange(found, now) != now || watch_ < 0)
            continue;
        watched_ = now;
        return true;
    }
    throw SharedFolderFault{folder.path().string() + " is replaced again and again.",
                            "Find the program that does it."};
}

Descriptor FolderWatch::open()
{
    Descriptor made(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!made.isOpen())
        throw cannotWatch(errno);
    return made;
}

void FolderWatch::addWatch(const SharedFolder& folder)
{
    constexpr auto events =
        IN_MOVED_FROM | IN_MOVED_TO | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
    const int old = std::exchange(watch_, -1);
    const int added = ::inotify_add_watch(descriptor_, folder.path().c_str(), events);
    const int error = errno;
    if (old >= 0 && old != added)
        ::inotify_rm_watch(descriptor_, old);
    if (added < 0 && error != ENOENT && error != ENOTDIR)
        throw cannotWatch(error);
    watch_ = added;
}

FolderWatch::News FolderWatch::read()
{
    News news;
    int waiting = 0;
    if (::ioctl(descriptor_, FIONREAD, &waiting) != 0)
        return news;
    alignas(inotify_event) std::array<std::byte, 16384> bytes;
    // No more than was there at first: others may write faster than this reads.
    while (waiting > 0)
    {
        const auto got = ::read(descriptor_, bytes.data(), bytes.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        waiting -= static_cast<int>(got);
        for (std::size_t at = 0; at < static_cast<std::size_t>(got);)
        {
            const auto& event = *reinterpret_cast<const inotify_event*>(bytes.data() + at);
            take(event, news);
            at += sizeof event + event.len;
        }
    }
    return news;
}

void FolderWatch::take(const inotify_event& event, News& news)
{
    // A watch that was given up may have left some. Its end is none, but what was written is news.
    const bool gone = event.wd == watch_ && (event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0;
    if (gone && (event.mask & IN_IGNORED) != 0)
        watch_ = -1;
    // That the folder is gone may be among what overflowed.
    if (gone || (event.mask & IN_Q_OVERFLOW) != 0)
    {
        watched_.reset();
        news.lost = true;
    }
    if ((event.mask & (IN_MOVED_FROM | IN_MOVED_TO)) != 0 && event.len > 0)
        takeRenamed(event, news);
}

void FolderWatch::takeRenamed(const inotify_event& event, News& news)
{
    const std::string_view name = event.name;
    if ((event.mask & IN_MOVED_FROM) != 0)
    {
        origin_ = Origin{event.cookie, writerOfDraftName(name).value_or("")};
        return;
    }
    const auto origin = std::exchange(origin_, std::nullopt);
    if (auto key = keyOfFileName(name))
        news.written.push_back({std::move(*key), origin && origin->cookie == event.cookie
                                                     ? origin->writer
                                                     : std::string()});
}

}  // namespace platform
