#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace accountserver
{

/// Makes the folder with mode 0700, or takes an existing one of this user. One that others may
/// enter is closed to them when it is empty, and refused otherwise. Throws `Failure`.
void makePrivateFolder(const std::filesystem::path& folder);

/// The whole file, or nothing when there is none. Throws `Failure` when it cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);

/// Replaces the file in one step, so that a reader sees the old text or the new one, never a part.
void writeFile(const std::filesystem::path& file, std::string_view text, int mode = 0600);

/// Keeps a second server out of the same state folder for as long as it lives.
class FolderLock
{
public:
    explicit FolderLock(const std::filesystem::path& folder);
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock();

private:
    int descriptor_;
};

}  // namespace accountserver
