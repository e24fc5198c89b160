#include "Platform/Security/Embedded/DurableFile.hpp"

#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreFolder.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace platform
{
namespace
{

void require(int result, const char* attempt, const std::filesystem::path& path)
{
    if (result < 0)
        throw StoreFault::ofSystem(attempt + path.string(), errno);
}

/// Writes and syncs; false with `errno` where one fails.
bool fill(FileLayer& files, int descriptor, std::span<const std::byte> content)
{
    while (!content.empty())
    {
        const auto written = files.write(descriptor, content);
        if (written < 0 && errno != EINTR)
            return false;
        content = content.subspan(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return files.sync(descriptor) == 0;
}

void writeDraft(FileLayer& files, const std::filesystem::path& draft,
                std::span<const std::byte> content)
{
    discardDraft(files, draft);
    const int descriptor = files.createExclusively(draft);
    require(descriptor, "Cannot create ", draft);
    const bool filled = fill(files, descriptor, content);
    const int error = errno;
    const bool closed = files.close(descriptor) == 0;
    if (filled && closed)
        return;
    const auto fault =
        StoreFault::ofSystem("Cannot write " + draft.string(), filled ? errno : error);
    files.remove(draft);
    throw fault;
}

}  // namespace

void makeFileOnce(FileLayer& files, const std::filesystem::path& draft,
                  const std::filesystem::path& file, std::span<const std::byte> content)
{
    writeDraft(files, draft, content);
    // A second name instead of a rename: it never takes the place of a file that is there.
    require(files.link(draft, file), "Cannot create ", file);
    discardDraft(files, draft);
    syncFolder(files, file.parent_path());
}

void replaceFile(FileLayer& files, const std::filesystem::path& draft,
                 const std::filesystem::path& file, std::span<const std::byte> content)
{
    writeDraft(files, draft, content);
    require(files.rename(draft, file), "Cannot replace ", file);
    syncFolder(files, file.parent_path());
}

void syncFolder(FileLayer& files, const std::filesystem::path& folder)
{
    require(files.syncFolder(folder), "Cannot sync the folder ", folder);
}

void discardDraft(FileLayer& files, const std::filesystem::path& draft)
{
    if (files.remove(draft) != 0 && errno != ENOENT)
        throw StoreFault::ofSystem("Cannot remove " + draft.string(), errno);
}

std::optional<SecretBytes> readPrivateFile(const std::filesystem::path& file, std::size_t limit)
{
    if (!privateFactsOf(file))
        return std::nullopt;
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    require(descriptor, "Cannot open ", file);

    SecretBytes bytes;
    bytes.resize(limit + 1);
    std::size_t size = 0;
    ssize_t got = 0;
    do
    {
        got = ::read(descriptor, bytes.mutableView().data() + size, bytes.size() - size);
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
    } while ((got > 0 && size <= limit) || (got < 0 && errno == EINTR));
    const int error = errno;
    ::close(descriptor);
    if (got < 0)
        throw StoreFault::ofSystem("Cannot read " + file.string(), error);
    bytes.resize(size);
    return bytes;
}

}  // namespace platform
