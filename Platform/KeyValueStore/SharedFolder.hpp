#pragma once

#include "Platform/Basics/Diagnostic.hpp"

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform
{

/// Why something in the shared folder could not be done. Thrown and caught within this room.
struct SharedFolderFault
{
    std::string cause;
    std::string nextStep;

    static SharedFolderFault ofSystem(const std::string& attempt, int error);
};

/// The files behind a `FileKeyValueStore`. It keeps nothing open; any thread may call.
class SharedFolder
{
public:
    static constexpr std::size_t longestValue = 1024;

    /// Which folder stands at the path now.
    struct Identity
    {
        dev_t device = 0;
        ino_t number = 0;
        bool operator==(const Identity&) const = default;
    };

    explicit SharedFolder(std::filesystem::path path) : path_(std::move(path)) {}

    const std::filesystem::path& path() const noexcept { return path_; }

    /// Makes the folder where it is missing. Throws `SharedFolderFault` where it cannot, and for
    /// one that is not the user's alone.
    Identity require() const;

    /// Replaces a key's value, under the writer's name until it is whole. Throws
    /// `SharedFolderFault`; the old value stays then.
    void write(const std::string& fileName, std::string_view value,
               const std::string& writer) const;

    /// Nothing where there is no such value, or none that a program of the user can have written.
    std::optional<std::string> read(const std::string& fileName) const;

    /// The keys that have a value; some of them where the folder holds too much.
    std::vector<std::string> keys() const;

    /// Removes the drafts of programs that were killed while they wrote.
    void removeLeftDrafts() const;

private:
    bool tryToWrite(const std::filesystem::path& draft, const std::filesystem::path& file,
                    std::string_view value) const;
    std::vector<std::string> names() const;

    std::filesystem::path path_;
};

}  // namespace platform
