#pragma once

#include "Platform/Basics/Diagnostic.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace tessera
{

/// A file of lines that only its end matters of, shared by the programs of one user. Any thread may
/// use it. All members throw a `platform::Diagnostic`: the cause and the next step.
///
/// Lines are added and the file is cut under a lock on the file itself. A program that is stopped
/// while it holds the lock delays the others by 1 s; then they add their lines without it.
class HistoryFile
{
public:
    /// The most that is read: so many bytes at the end of the file.
    static constexpr std::size_t tailSize = 64 * 1024;

    /// Neither text is copied.
    HistoryFile(const std::filesystem::path& folder, const std::string& name)
        : folder_(folder), name_(name)
    {}

    /// Adds the line, which brings its line end, and makes folder and file where they are missing.
    /// When the file has more than `most` lines, its end is replaced by what `shortened` makes
    /// of it, and all else goes.
    void append(std::string_view line, std::size_t most,
                const std::function<std::string(std::string_view)>& shortened) const;

    /// The whole lines at the end of the file; empty where there is none.
    std::string tail() const;

private:
    const std::filesystem::path& folder_;
    const std::string& name_;
};

}  // namespace tessera
