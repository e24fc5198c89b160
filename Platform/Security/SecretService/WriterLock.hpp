#pragma once

#include "Platform/Security/SecretService/Deadline.hpp"

#include <sys/types.h>

#include <filesystem>

namespace platform
{

/// The turn to write, of which there is one among all stores of the user, in all processes. A
/// process that dies gives it back; one that is stopped keeps it. Any thread may release
/// it.
class WriterLock
{
public:
    /// Waits for the turn until the deadline. The folder is made where it is missing, and refused
    /// if it is a link, someone else's, or open to others, or its path is not absolute. Throws
    /// `SecretServiceFailure`.
    WriterLock(const std::filesystem::path& folder, Deadline deadline);
    ~WriterLock();
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;

    /// The folder that all programs of the user agree on: "tessera" in the session's runtime
    /// folder, or in the user's data folder where there is none. Reads the environment; empty
    /// where it names no folder at all.
    static std::filesystem::path defaultFolder();

private:
    int descriptor_ = -1;
    const pid_t holder_;
};

}  // namespace platform
