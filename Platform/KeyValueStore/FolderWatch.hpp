#pragma once

#include "Platform/Basics/Descriptor.hpp"
#include "Platform/KeyValueStore/SharedFolder.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct inotify_event;

namespace platform
{

/// What the kernel tells of a folder's renamed files: which key, and by whose draft. Its caller
/// holds a lock and keeps the descriptor open.
class FolderWatch
{
public:
    struct Written
    {
        std::string key;
        /// Empty where it is not known.
        std::string writer;
    };

    struct News
    {
        std::vector<Written> written;
        /// More happened than could be told, or the folder does not stand at its path any more: the
        /// watch is to be begun again.
        bool lost = false;
    };

    /// The descriptor for a watch. Throws `SharedFolderFault` where the kernel gives none.
    static Descriptor open();

    explicit FolderWatch(int descriptor) noexcept : descriptor_(descriptor) {}

    /// Watches the folder that stands at the path, instead of the one before; nothing to do where
    /// it is the same. Returns whether it is another. Throws `SharedFolderFault`, the folder's own
    /// or the kernel's; nothing is watched then.
    bool begin(const SharedFolder& folder);

    /// What has come in up to now. Does not wait.
    News read();

private:
    struct Origin
    {
        std::uint32_t cookie;
        std::string writer;
    };

    void addWatch(const SharedFolder& folder);
    void take(const inotify_event& event, News& news);
    void takeRenamed(const inotify_event& event, News& news);

    const int descriptor_;
    int watch_ = -1;
    std::optional<SharedFolder::Identity> watched_;
    /// The first half of a renaming whose second has not come yet.
    std::optional<Origin> origin_;
};

}  // namespace platform
