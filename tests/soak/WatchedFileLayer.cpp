#include "tests/soak/FileWatcher.hpp"

#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>

namespace soak
{
namespace
{

int refuse(Fate fate)
{
    errno = fate == Fate::error ? EIO : ENOSPC;
    return -1;
}

template <class Function>
int make(const FileCall& call, Function function)
{
    if (const auto fate = fateOf(call); fate != Fate::done)
        return refuse(fate);
    const int result = function();
    if (result >= 0)
        tellWatcher(call);
    return result;
}

class WatchedFileLayer final : public platform::FileLayer
{
public:
    using Path = std::filesystem::path;
    using Kind = FileCall::Kind;

    int makeFolder(const Path& folder) override
    {
        return make({Kind::makeFolder, folder}, [&] { return FileLayer::makeFolder(folder); });
    }

    int createExclusively(const Path& file) override
    {
        const int descriptor =
            make({Kind::create, file}, [&] { return FileLayer::createExclusively(file); });
        if (descriptor >= 0)
            open(descriptor) = {.path = file, .written = 0};
        return descriptor;
    }

    ssize_t write(int descriptor, std::span<const std::byte> bytes) override
    {
        auto& file = open(descriptor);
        FileCall call{.path = file.path, .offset = file.written, .data = bytes};
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
            tellWatcher(call);
        }
        return result;
    }

    int sync(int descriptor) override
    {
        return make({Kind::sync, open(descriptor).path},
                    [&] { return FileLayer::sync(descriptor); });
    }

    int close(int descriptor) override
    {
        {
            const std::lock_guard lock(mutex_);
            open_.erase(descriptor);
        }
        return FileLayer::close(descriptor);
    }

    int link(const Path& from, const Path& to) override
    {
        return make({Kind::link, from, to}, [&] { return FileLayer::link(from, to); });
    }

    int rename(const Path& from, const Path& to) override
    {
        return make({Kind::rename, from, to}, [&] { return FileLayer::rename(from, to); });
    }

    int remove(const Path& file) override
    {
        return make({Kind::remove, file}, [&] { return FileLayer::remove(file); });
    }

    int syncFolder(const Path& folder) override
    {
        return make({Kind::syncFolder, folder}, [&] { return FileLayer::syncFolder(folder); });
    }

private:
    struct Open
    {
        std::string path;
        std::uint64_t written = 0;
    };

    Open& open(int descriptor)
    {
        const std::lock_guard lock(mutex_);
        return open_[descriptor];
    }

    std::mutex mutex_;
    std::map<int, Open> open_;
};

}  // namespace

std::shared_ptr<platform::FileLayer> watchedFileLayer()
{
    return std::make_shared<WatchedFileLayer>();
}

}  // namespace soak
