#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <filesystem>

namespace commandline
{

/// The file in which a session token waits for the next command: a regular file that is nobody
/// else's to read (mode 0600). Symbolic links are never followed, so that a token neither replaces
/// nor is read from what somebody else chose.
///
/// Every member throws `Failure` of the class `tokenFile`.
class TokenFile
{
public:
    explicit TokenFile(std::filesystem::path path) : path_(std::move(path)) {}

    const std::filesystem::path& path() const noexcept { return path_; }

    /// Refuses what `write` would refuse, as far as it can be told beforehand: a code that was
    /// exchanged for a token which cannot be kept is lost.
    void checkWritable() const;

    /// Replaces the file in one step: a reader sees the old token or the new one, never a part. The
    /// token is on the disk when this returns.
    void write(const platform::SecretString& token) const;

    platform::SecretString read() const;

    /// A file that is gone already is no failure.
    void remove() const;

private:
    [[noreturn]] void fail(const std::string& what, int reason) const;
    /// Whether there is a file; refuses anything but a regular one.
    bool exists() const;
    std::filesystem::path folder() const;

    std::filesystem::path path_;
};

}  // namespace commandline
