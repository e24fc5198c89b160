#pragma once

#include <sys/types.h>
#include <filesystem>
#include <string>

namespace soak
{

/// The account server for development as a child of this process, on free ports of loopback and
/// without a limit on codes. Ended with the object, and with this process.
class CyclesServer
{
public:
    /// Returns when it listens; `folder` is its own. Throws `std::runtime_error` when it does not
    /// start. To be made before this process has threads.
    CyclesServer(const std::filesystem::path& program, std::filesystem::path folder);
    ~CyclesServer();
    CyclesServer(const CyclesServer&) = delete;
    CyclesServer& operator=(const CyclesServer&) = delete;

    std::filesystem::path environmentFile() const { return folder_ / "environment.json"; }

    /// The code of the newest mail to the address; its mails are removed. Throws when there is
    /// none.
    std::string takeCode(const std::string& email) const;

private:
    const std::filesystem::path folder_;
    pid_t pid_ = -1;
    int output_ = -1;
};

}  // namespace soak
