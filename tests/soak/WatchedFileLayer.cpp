#include "tests/soak/WatchedFileLayer.hpp"

#include "tests/soak/WatchedVFS.hpp"

#include <cerrno>

namespace soak
{
namespace
{

int refuse(Fate fate)
{
    errno = fate == Fate::error ? EIO : ENOSPC;
    return -1;
}

Fate fateOf(const FileCall& call)
{
    const auto& watcher = currentWatcher();
    return watcher ? watcher->before(call) : Fate::done;
}

void tell(const FileCall& call)
{
    if (const auto& watcher = currentWatcher())
        watcher->after(call);
}

template <class Function>
int make(const FileCall& call, Function function)
{
    if (const auto fate = fateOf(call); fate != Fate::done)
        return refuse(fate);
    const int result = function();
    if (result >= 0)
        tell(call);
    return result;
}

}  // namespace

WatchedFileLayer::Open& WatchedFileLayer::open(int descriptor)
{
    const std::lock_guard lock(mutex_);
    return open_[descriptor];
}

int WatchedFileLayer::makeFolder(const std::filesystem::path& folder)
{
    return make({.kind = FileCall::Kind::makeFolder, .path = folder},
                [&] { return FileLayer::makeFolder(folder); });
}

int WatchedFileLayer::createExclusively(const std::filesystem::path& file)
{
    const int descriptor = make({.kind = FileCall::Kind::create, .path = file},
                                [&] { return FileLayer::createExclusively(file); });
    if (descriptor >= 0)
        open(descriptor) = {.path = file, .written = 0};
    return descriptor;
}

ssize_t WatchedFileLayer::write(int descriptor, std::span<const std::byte> bytes)
{
    auto& file = open(descriptor);
    FileCall call{
        .kind = FileCall::Kind::write, .path = file.path, .offset = file.written, .data = bytes};
    const auto fate = fateOf(call);
    if (fate == Fate::half)
        call.data = bytes.first(bytes.size() / 2);
    else if (fate != Fate::done)
        return refuse(fate);
    const auto result = FileLayer::write(descriptor, call.data);
    if (result > 0)
    {
        call.data = call.data.first(static_cast<std::size_t>(result));
        file.written += call.data.size();
        tell(call);
    }
    return result;
}

int WatchedFileLayer::sync(int descriptor)
{
    return make({.kind = FileCall::Kind::sync, .path = open(descriptor).path},
                [&] { return FileLayer::sync(descriptor); });
}

int WatchedFileLayer::close(int descriptor)
{
    {
        const std::lock_guard lock(mutex_);
        open_.erase(descriptor);
    }
    return FileLayer::close(descriptor);
}

int WatchedFileLayer::link(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return make({.kind = FileCall::Kind::link, .path = from, .target = to},
                [&] { return FileLayer::link(from, to); });
}

int WatchedFileLayer::rename(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return make({.kind = FileCall::Kind::rename, .path = from, .target = to},
                [&] { return FileLayer::rename(from, to); });
}

int WatchedFileLayer::remove(const std::filesystem::path& file)
{
    return make({.kind = FileCall::Kind::remove, .path = file},
                [&] { return FileLayer::remove(file); });
}

int WatchedFileLayer::syncFolder(const std::filesystem::path& folder)
{
    return make({.kind = FileCall::Kind::syncFolder, .path = folder},
                [&] { return FileLayer::syncFolder(folder); });
}

}  // namespace soak
