#pragma once

#include "tests/soak/FileWatcher.hpp"
#include "tests/soak/Random.hpp"

#include <filesystem>
#include <map>
#include <mutex>
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

    void after(const FileCall& call) override;

    const std::vector<DiskEvent>& events() const { return events_; }

private:
    std::string within(const std::string& path) const;

    const std::string folder_;
    std::mutex mutex_;
    std::vector<DiskEvent> events_;
};

/// The files and folders that a power cut left.
struct DiskImage
{
    struct Entry
    {
        std::string path;
        bool isFolder = false;
        /// Of a file, what other path names it too; empty for none.
        std::string linkedTo = {};
        std::vector<std::byte> data = {};
    };
    /// A folder comes before what is in it.
    std::vector<Entry> entries;

    void writeTo(const std::filesystem::path& folder) const;

    /// The same for images that do not differ.
    std::size_t hash() const;
};

/// A disk as POSIX promises it and no better: what was written is on it after a sync of the file,
/// what was named, renamed and removed after a sync of the folder. Of all else, a power cut leaves
/// anything.
class Disk
{
public:
    /// What becomes of the changes that were not synced.
    enum class Unsynced
    {
        lost,
        kept,
        /// Each 512 bytes and each name on its own; bytes that were lost before bytes that were
        /// kept are zero, or garbage.
        any,
    };

    void play(const DiskEvent& event);

    /// What is left after a power cut.
    DiskImage cut(Unsynced names, Unsynced data, Random& random) const;

private:
    struct Write
    {
        /// Of a truncation, the new size, and no data.
        std::uint64_t offset = 0;
        std::vector<std::byte> data;
        bool truncates = false;
    };
    struct File
    {
        std::vector<std::byte> durable;
        std::vector<Write> unsynced;
    };
    /// What a name stands for: the index of a file, which may have several, a folder, or nothing.
    using Entry = std::size_t;
    static constexpr Entry aFolder = SIZE_MAX - 1;
    static constexpr Entry nothing = SIZE_MAX;
    using Names = std::map<std::string, Entry>;
    /// One change of the names, which happens as a whole or not at all.
    using NameChange = std::vector<std::pair<std::string, Entry>>;

    void change(NameChange change);
    void syncNames(const std::string& folder);
    static void syncFile(File& file);
    static std::vector<std::byte> dataAfterCut(const File& file, Unsynced data, Random& random);
    Entry named(const std::string& path) const;

    std::vector<File> files_;
    Names now_;
    Names durable_;
    std::vector<NameChange> unsynced_;
};

}  // namespace soak
