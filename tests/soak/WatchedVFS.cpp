#include "tests/soak/FileWatcher.hpp"

#include <sqlite3.h>
#include <unistd.h>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace soak
{
namespace
{

constexpr auto name = "tessera-soak";
std::shared_ptr<FileWatcher> watcher;
sqlite3_vfs* machine = nullptr;

/// Whether the machine's layer opened a folder, which it does to sync it and for nothing else.
thread_local bool openedFolder = false;
using OpenDirectory = int (*)(const char*, int*);
OpenDirectory openDirectory = nullptr;

int noteFolder(const char* path, int* descriptor)
{
    openedFolder = true;
    return openDirectory(path, descriptor);
}

/// SQLite allocates it, the machine's file lies behind it.
struct WatchedFile
{
    sqlite3_file base;
    std::string path;

    sqlite3_file* inner() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

WatchedFile& of(sqlite3_file* file)
{
    return *reinterpret_cast<WatchedFile*>(file);
}

using Kind = FileCall::Kind;
using Methods = sqlite3_io_methods;

/// Hands a call on to the machine's file as it is.
template <auto method, class Function = std::remove_cvref_t<decltype(Methods().*method)>>
struct Machine;

template <auto method, class Result, class... Arguments>
struct Machine<method, Result (*)(sqlite3_file*, Arguments...)>
{
    static Result call(sqlite3_file* file, Arguments... arguments)
    {
        return (of(file).inner()->pMethods->*method)(of(file).inner(), arguments...);
    }
};

int code(Fate fate, int error)
{
    return fate == Fate::error ? error : SQLITE_FULL;
}

/// Makes the call unless its fate is another, and tells the watcher when it was made.
template <class Function>
int make(const FileCall& call, int error, Function function)
{
    if (const auto fate = fateOf(call); fate != Fate::done)
        return code(fate, error);
    const int result = function();
    if (result == SQLITE_OK)
        tellWatcher(call);
    return result;
}

/// Whether it succeeds is nothing that SQLite asks, so nobody can refuse it.
void tellFolderSync(const std::string& path)
{
    if (std::exchange(openedFolder, false))
        tellWatcher({Kind::syncFolder, std::filesystem::path(path).parent_path()});
}

int closeFile(sqlite3_file* file)
{
    const int result = Machine<&Methods::xClose>::call(file);
    of(file).~WatchedFile();
    file->pMethods = nullptr;
    return result;
}

int readFile(sqlite3_file* file, void* into, int size, sqlite3_int64 offset)
{
    return make({Kind::read, of(file).path}, SQLITE_IOERR_READ,
                [&] { return Machine<&Methods::xRead>::call(file, into, size, offset); });
}

int writeFile(sqlite3_file* file, const void* from, int size, sqlite3_int64 offset)
{
    const std::span data(static_cast<const std::byte*>(from), static_cast<std::size_t>(size));
    FileCall call{
        .path = of(file).path, .offset = static_cast<std::uint64_t>(offset), .data = data};
    const auto fate = fateOf(call);
    if (fate == Fate::half)
    {
        call.data = data.first(data.size() / 2);
        size /= 2;
    }
    else if (fate != Fate::done)
        return code(fate, SQLITE_IOERR_WRITE);
    const int result = Machine<&Methods::xWrite>::call(file, from, size, offset);
    if (result == SQLITE_OK)
        tellWatcher(call);
    return result == SQLITE_OK && fate == Fate::half ? SQLITE_FULL : result;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size)
{
    return make({.kind = FileCall::Kind::truncate,
                 .path = of(file).path,
                 .offset = static_cast<std::uint64_t>(size)},
                SQLITE_IOERR_TRUNCATE,
                [&] { return Machine<&Methods::xTruncate>::call(file, size); });
}

int syncFile(sqlite3_file* file, int flags)
{
    openedFolder = false;
    const int result = make({Kind::sync, of(file).path}, SQLITE_IOERR_FSYNC,
                            [&] { return Machine<&Methods::xSync>::call(file, flags); });
    tellFolderSync(of(file).path);
    return result;
}

constexpr Methods fileMethods{
    .iVersion = 3,
    .xClose = closeFile,
    .xRead = readFile,
    .xWrite = writeFile,
    .xTruncate = truncateFile,
    .xSync = syncFile,
    .xFileSize = Machine<&Methods::xFileSize>::call,
    .xLock = Machine<&Methods::xLock>::call,
    .xUnlock = Machine<&Methods::xUnlock>::call,
    .xCheckReservedLock = Machine<&Methods::xCheckReservedLock>::call,
    .xFileControl = Machine<&Methods::xFileControl>::call,
    .xSectorSize = Machine<&Methods::xSectorSize>::call,
    .xDeviceCharacteristics = Machine<&Methods::xDeviceCharacteristics>::call,
    .xShmMap = Machine<&Methods::xShmMap>::call,
    .xShmLock = Machine<&Methods::xShmLock>::call,
    .xShmBarrier = Machine<&Methods::xShmBarrier>::call,
    .xShmUnmap = Machine<&Methods::xShmUnmap>::call,
    .xFetch = Machine<&Methods::xFetch>::call,
    .xUnfetch = Machine<&Methods::xUnfetch>::call};

int openFile(sqlite3_vfs*, sqlite3_filename path, sqlite3_file* file, int flags, int* outFlags)
{
    auto& watched = *new (file) WatchedFile{.base = {nullptr}, .path = path ? path : ""};
    const auto open = [&]
    { return machine->xOpen(machine, path, watched.inner(), flags, outFlags); };
    const bool creates = path && (flags & SQLITE_OPEN_CREATE) != 0 && access(path, F_OK) != 0;
    const int result = creates ? make({Kind::create, watched.path}, SQLITE_CANTOPEN, open) : open();
    if (result != SQLITE_OK)
    {
        watched.~WatchedFile();
        file->pMethods = nullptr;
        return result;
    }
    file->pMethods = &fileMethods;
    return SQLITE_OK;
}

int removeFile(sqlite3_vfs*, const char* path, int syncsFolder)
{
    openedFolder = false;
    const int result = make({Kind::remove, path}, SQLITE_IOERR_DELETE,
                            [&] { return machine->xDelete(machine, path, syncsFolder); });
    tellFolderSync(path);
    return result;
}

/// Everything else is the machine's; only what it gets as its own object must be its own.
sqlite3_vfs derive(const sqlite3_vfs& from)
{
    auto vfs = from;
    vfs.zName = name;
    vfs.pNext = nullptr;
    vfs.szOsFile = static_cast<int>(sizeof(WatchedFile)) + from.szOsFile;
    vfs.xOpen = openFile;
    vfs.xDelete = removeFile;
    return vfs;
}

}  // namespace

const char* watchedVFS()
{
    if (machine)
        return name;
    machine = sqlite3_vfs_find(nullptr);
    openDirectory = reinterpret_cast<OpenDirectory>(
        machine ? machine->xGetSystemCall(machine, "openDirectory") : nullptr);
    if (!openDirectory)
        throw std::runtime_error("SQLite's file layer cannot be watched on this machine");
    machine->xSetSystemCall(machine, "openDirectory",
                            reinterpret_cast<sqlite3_syscall_ptr>(noteFolder));
    static auto vfs = derive(*machine);
    sqlite3_vfs_register(&vfs, 0);
    return name;
}

void watchFiles(std::shared_ptr<FileWatcher> next)
{
    watcher = std::move(next);
}

Fate fateOf(const FileCall& call)
{
    return watcher ? watcher->before(call) : Fate::done;
}

void tellWatcher(const FileCall& call)
{
    if (watcher)
        watcher->after(call);
}

}  // namespace soak
