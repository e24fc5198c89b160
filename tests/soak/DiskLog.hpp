#pragma once

#include "tests/soak/FileWatcher.hpp"

#include <mutex>
#include <string>
#include <vector>

namespace soak
{

/// A call on the disk that was made, kept with its data.
struct DiskEvent
{
    FileCall::Kind kind;
    /// Below the folder that the log is about.
    std::string path;
    std::string target;
    std::uint64_t offset = 0;
    std::vector<std::byte> data;
};

/// For messages: "sync data/keychain.db-journal".
std::string shown(const DiskEvent& event);

/// Writes down every change of the disk below a folder.
class DiskLog final : public FileWatcher
{
public:
    explicit DiskLog(std::string folder) : folder_(std::move(folder) + "/") {}

    Fate before(const FileCall& call) override;
    void after(const FileCall& call) override;

    const std::vector<DiskEvent>& events() const { return events_; }

private:
    std::string within(const std::string& path) const;

    const std::string folder_;
    std::mutex mutex_;
    std::vector<DiskEvent> events_;
};

}  // namespace soak
