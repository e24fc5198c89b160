#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <filesystem>

namespace platform
{

class KeyValueHub;

/// Values that all programs of one user on one machine share: a small file for each key, in a
/// folder that is the user's own. A value replaces its file as a whole, so that a reader sees the
/// old one or the new one, and whoever is killed spoils neither.
///
/// News arrives by inotify and tells who wrote without reading a file; nothing is polled and
/// nothing runs while nobody writes. Where news may have been missed (too much at once, the folder
/// gone), every key in the folder is told as changed, though no more than 4096 files are looked at.
/// Nothing is touched on disk, and no descriptor opened, before somebody joins.
///
/// Any thread may call `join`; a participant is for one thread at a time. Both joining and
/// `synchronize` work on the folder before they return, a few calls of the system each, and so take
/// as long as its disk does. Nothing is thrown: what cannot be done is told to the diagnostics,
/// once until it is done again; what is called there must not wait for the store. Participants may
/// outlive the store, and both must end before the executor's thread does.
///
/// A key may hold any bytes; its file name takes three for each that is no letter, digit, ".", "_"
/// or "-", and at most 200. Longer ones, empty ones and values beyond 1 KiB are refused.
class FileKeyValueStore final : public UbiquitousKeyValueStore
{
public:
    /// Where the values lie, and who is told of faults.
    struct Configuration
    {
        /// Made when it is missing. Refused unless it is the user's own, closed to others, and no
        /// link.
        std::filesystem::path folder;
        DiagnosticSink diagnostics;

        /// $XDG_STATE_HOME/tessera/shared, or ~/.local/state/tessera/shared; a value that is not
        /// absolute counts as unset, after the XDG base directory rules. An empty folder, which is
        /// refused, where there is no home either.
        static Configuration ofUser();
    };

    /// Watches the folder on `background`, which must be that of an `io_context`: a
    /// `WorkerThread`'s is.
    FileKeyValueStore(const Executor& background, Configuration configuration);
    ~FileKeyValueStore() override;

    std::unique_ptr<Participant> join(const Executor& executor, Handler handler) override;

private:
    const std::shared_ptr<KeyValueHub> hub_;
};

}  // namespace platform
