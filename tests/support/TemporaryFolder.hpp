#pragma once

#include <filesystem>
#include <string_view>

/// A folder of its own for one test, removed with everything in it at the end.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Writes a file below the folder, with the folders on the way to it.
    void write(const std::filesystem::path& name, std::string_view content) const;

private:
    std::filesystem::path path_;
};
