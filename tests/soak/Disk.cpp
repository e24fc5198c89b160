#include "tests/soak/Disk.hpp"

#include <sys/stat.h>
#include <algorithm>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>

namespace soak
{
namespace
{

constexpr std::size_t sectorSize = 512;

std::string folderOf(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

bool keeps(Disk::Unsynced what, Random& random)
{
    return what == Disk::Unsynced::kept || (what == Disk::Unsynced::any && random.oneIn(2));
}

void put(std::vector<std::byte>& into, std::uint64_t offset, std::span<const std::byte> data)
{
    if (into.size() < offset + data.size())
        into.resize(offset + data.size());
    std::ranges::copy(data, into.begin() + static_cast<std::ptrdiff_t>(offset));
}

/// The disk gave the file room that nothing was written to: it shows what lay there before.
void fill(std::vector<std::byte>& into, std::uint64_t from, std::uint64_t to, Random& random)
{
    if (into.size() < to)
        into.resize(to);
    if (random.oneIn(2))
        for (auto at = from; at < to; ++at)
            into[at] = static_cast<std::byte>(random.any());
}

}  // namespace

std::string shown(const DiskEvent& event)
{
    static constexpr const char* names[]{"create", "read",   "write", "truncate",    "sync",
                                         "remove", "rename", "link",  "make folder", "sync folder"};
    return std::string(names[static_cast<std::size_t>(event.kind)]) + " " +
           (event.path.empty() ? "." : event.path) +
           (event.target.empty() ? "" : " to " + event.target);
}

void DiskLog::after(const FileCall& call)
{
    // Temporary files of SQLite have no name and need no durability.
    if (call.kind == FileCall::Kind::read || call.path.empty())
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

void Disk::play(const DiskEvent& event)
{
    using enum FileCall::Kind;
    const auto entry = named(event.path);
    switch (event.kind)
    {
        case create:
            files_.emplace_back();
            return change({{event.path, files_.size() - 1}});
        case makeFolder:
            return change({{event.path, aFolder}});
        case remove:
            return change({{event.path, nothing}});
        case link:
            return change({{event.target, entry}});
        case rename:
            return change({{event.target, entry}, {event.path, nothing}});
        case syncFolder:
            return syncNames(event.path);
        case write:
        case truncate:
            if (entry < files_.size())
                files_[entry].unsynced.push_back({.offset = event.offset,
                                                  .data = event.data,
                                                  .truncates = event.kind == truncate});
            return;
        case sync:
            if (entry < files_.size())
                syncFile(files_[entry]);
            return;
        case read:
            return;
    }
}

Disk::Entry Disk::named(const std::string& path) const
{
    const auto found = now_.find(path);
    return found == now_.end() ? nothing : found->second;
}

void Disk::change(NameChange change)
{
    for (const auto& [name, entry] : change)
        now_[name] = entry;
    unsynced_.push_back(std::move(change));
}

/// A change that touches two folders counts as synced with either: the journals of file systems
/// hold it whole.
void Disk::syncNames(const std::string& folder)
{
    std::erase_if(unsynced_,
                  [&](const NameChange& change)
                  {
                      if (std::ranges::none_of(change, [&](const auto& one)
                                               { return folderOf(one.first) == folder; }))
                          return false;
                      for (const auto& [name, entry] : change)
                          durable_[name] = entry;
                      return true;
                  });
}

void Disk::syncFile(File& file)
{
    for (const auto& write : file.unsynced)
    {
        if (write.truncates)
            file.durable.resize(write.offset);
        else
            put(file.durable, write.offset, write.data);
    }
    file.unsynced.clear();
}

std::vector<std::byte> Disk::dataAfterCut(const File& file, Unsynced data, Random& random)
{
    auto bytes = file.durable;
    for (const auto& write : file.unsynced)
    {
        if (write.truncates)
        {
            if (keeps(data, random))
                bytes.resize(write.offset);
            continue;
        }
        for (std::size_t at = 0; at < write.data.size();)
        {
            const auto place = write.offset + at;
            const auto size =
                std::min<std::size_t>(sectorSize - place % sectorSize, write.data.size() - at);
            if (keeps(data, random))
                put(bytes, place, std::span(write.data).subspan(at, size));
            else if (data == Unsynced::any && bytes.size() < place + size && random.oneIn(2))
                fill(bytes, bytes.size(), place + size, random);
            at += size;
        }
    }
    return bytes;
}

DiskImage Disk::cut(Unsynced names, Unsynced data, Random& random) const
{
    auto left = durable_;
    for (const auto& change : unsynced_)
        if (keeps(names, random))
            for (const auto& [name, entry] : change)
                left[name] = entry;

    DiskImage image;
    std::map<Entry, std::string> written;
    std::set<std::string> folders{""};
    for (const auto& [name, entry] : left)
    {
        // What lies in a folder that is gone is gone with it.
        if (entry == nothing || !folders.contains(folderOf(name)))
            continue;
        DiskImage::Entry kept{.path = name, .isFolder = entry == aFolder};
        if (kept.isFolder)
            folders.insert(name);
        else if (const auto [first, isNew] = written.emplace(entry, name); !isNew)
            kept.linkedTo = first->second;
        else
            kept.data = dataAfterCut(files_[entry], data, random);
        image.entries.push_back(std::move(kept));
    }
    return image;
}

void DiskImage::writeTo(const std::filesystem::path& folder) const
{
    for (const auto& entry : entries)
    {
        const auto path = folder / entry.path;
        if (entry.isFolder)
        {
            if (mkdir(path.c_str(), 0700) != 0)
                throw std::runtime_error("could not make " + path.string());
            continue;
        }
        if (!entry.linkedTo.empty())
        {
            std::filesystem::create_hard_link(folder / entry.linkedTo, path);
            continue;
        }
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(entry.data.data()),
                  static_cast<std::streamsize>(entry.data.size()));
        if (!out.flush() || chmod(path.c_str(), 0600) != 0)
            throw std::runtime_error("could not write " + path.string());
    }
}

std::size_t DiskImage::hash() const
{
    std::string all;
    for (const auto& entry : entries)
    {
        all += entry.path + (entry.isFolder ? "/" : "") + '\0' + entry.linkedTo + '\0' +
               std::to_string(entry.data.size()) + '\0';
        all.append(reinterpret_cast<const char*>(entry.data.data()), entry.data.size());
    }
    return std::hash<std::string>{}(all);
}

}  // namespace soak
