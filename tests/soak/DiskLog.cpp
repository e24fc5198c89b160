#include "tests/soak/DiskLog.hpp"

#include <stdexcept>

namespace soak
{

std::string shown(const DiskEvent& event)
{
    static constexpr const char* names[]{"create",      "read",        "write",  "truncate",
                                         "sync",        "remove",      "rename", "link",
                                         "make folder", "sync folder", "lock"};
    return std::string(names[static_cast<std::size_t>(event.kind)]) + " " +
           (event.path.empty() ? "." : event.path) +
           (event.target.empty() ? "" : " to " + event.target);
}

Fate DiskLog::before(const FileCall&)
{
    return Fate::done;
}

void DiskLog::after(const FileCall& call)
{
    if (call.kind == FileCall::Kind::read || call.kind == FileCall::Kind::lockForWriting)
        return;
    // Temporary files of SQLite have no name and need no durability.
    if (call.path.empty())
        return;
    // The folders above are there and stay there.
    if (call.kind == FileCall::Kind::syncFolder && !(call.path + "/").starts_with(folder_))
        return;
    const std::lock_guard lock(mutex_);
    events_.push_back({.kind = call.kind,
                       .path = within(call.path),
                       .target = call.target.empty() ? "" : within(call.target),
                       .offset = call.offset,
                       .data = {call.data.begin(), call.data.end()}});
}

std::string DiskLog::within(const std::string& path) const
{
    if (path + "/" == folder_)
        return "";
    if (!path.starts_with(folder_))
        throw std::runtime_error("a call outside of the folder: " + path);
    return path.substr(folder_.size());
}

}  // namespace soak
