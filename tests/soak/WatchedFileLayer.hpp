#pragma once

#include "tests/soak/FileWatcher.hpp"

#include "Platform/Security/Embedded/FileLayer.hpp"

#include <map>
#include <mutex>
#include <string>

namespace soak
{

/// The store's calls on its small files, told to the same watcher as SQLite's.
class WatchedFileLayer final : public platform::FileLayer
{
public:
    int makeFolder(const std::filesystem::path& folder) override;
    int createExclusively(const std::filesystem::path& file) override;
    ssize_t write(int descriptor, std::span<const std::byte> bytes) override;
    int sync(int descriptor) override;
    int close(int descriptor) override;
    int link(const std::filesystem::path& from, const std::filesystem::path& to) override;
    int rename(const std::filesystem::path& from, const std::filesystem::path& to) override;
    int remove(const std::filesystem::path& file) override;
    int syncFolder(const std::filesystem::path& folder) override;

private:
    struct Open
    {
        std::string path;
        std::uint64_t written = 0;
    };
    Open& open(int descriptor);

    std::mutex mutex_;
    std::map<int, Open> open_;
};

}  // namespace soak
