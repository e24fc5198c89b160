#include "tests/soak/WatchedVFS.hpp"

#include <sqlite3.h>
#include <unistd.h>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
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
    const sqlite3_io_methods& methods() { return *inner()->pMethods; }
};

WatchedFile& of(sqlite3_file* file)
{
    return *reinterpret_cast<WatchedFile*>(file);
}

Fate fateOf(const FileCall& call)
{
    return watcher ? watcher->before(call) : Fate::done;
}

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
    if (result == SQLITE_OK && watcher)
        watcher->after(call);
    return result;
}

/// Whether it succeeds is nothing that SQLite asks, so nobody can refuse it.
void tellFolderSync(const std::string& path)
{
    if (!std::exchange(openedFolder, false) || !watcher)
        return;
    watcher->after(
        {.kind = FileCall::Kind::syncFolder, .path = std::filesystem::path(path).parent_path()});
}

int closeFile(sqlite3_file* file)
{
    const int result = of(file).methods().xClose(of(file).inner());
    of(file).~WatchedFile();
    file->pMethods = nullptr;
    return result;
}

int readFile(sqlite3_file* file, void* into, int size, sqlite3_int64 offset)
{
    return make({.kind = FileCall::Kind::read, .path = of(file).path}, SQLITE_IOERR_READ,
                [&] { return of(file).methods().xRead(of(file).inner(), into, size, offset); });
}

int writeFile(sqlite3_file* file, const void* from, int size, sqlite3_int64 offset)
{
    auto& watched = of(file);
    const std::span data(static_cast<const std::byte*>(from), static_cast<std::size_t>(size));
    FileCall call{.kind = FileCall::Kind::write,
                  .path = watched.path,
                  .offset = static_cast<std::uint64_t>(offset),
                  .data = data};
    const auto fate = fateOf(call);
    if (fate == Fate::half)
    {
        call.data = data.first(data.size() / 2);
        size /= 2;
    }
    else if (fate != Fate::done)
        return code(fate, SQLITE_IOERR_WRITE);
    const int result = watched.methods().xWrite(watched.inner(), from, size, offset);
    if (result == SQLITE_OK && watcher)
        watcher->after(call);
    return result == SQLITE_OK && fate == Fate::half ? SQLITE_FULL : result;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size)
{
    return make({.kind = FileCall::Kind::truncate,
                 .path = of(file).path,
                 .offset = static_cast<std::uint64_t>(size)},
                SQLITE_IOERR_TRUNCATE,
                [&] { return of(file).methods().xTruncate(of(file).inner(), size); });
}

int syncFile(sqlite3_file* file, int flags)
{
    openedFolder = false;
    const int result =
        make({.kind = FileCall::Kind::sync, .path = of(file).path}, SQLITE_IOERR_FSYNC,
             [&] { return of(file).methods().xSync(of(file).inner(), flags); });
    tellFolderSync(of(file).path);
    return result;
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size)
{
    return of(file).methods().xFileSize(of(file).inner(), size);
}

int lockFile(sqlite3_file* file, int level)
{
    const int result = of(file).methods().xLock(of(file).inner(), level);
    if (result == SQLITE_OK && level >= SQLITE_LOCK_RESERVED && watcher)
        watcher->after({.kind = FileCall::Kind::lockForWriting, .path = of(file).path});
    return result;
}

int unlockFile(sqlite3_file* file, int level)
{
    return of(file).methods().xUnlock(of(file).inner(), level);
}

int checkReserved(sqlite3_file* file, int* result)
{
    return of(file).methods().xCheckReservedLock(of(file).inner(), result);
}

int control(sqlite3_file* file, int operation, void* argument)
{
    return of(file).methods().xFileControl(of(file).inner(), operation, argument);
}

int sectorSize(sqlite3_file* file)
{
    return of(file).methods().xSectorSize(of(file).inner());
}

int characteristics(sqlite3_file* file)
{
    return of(file).methods().xDeviceCharacteristics(of(file).inner());
}

int mapShared(sqlite3_file* file, int page, int size, int extend, void volatile** into)
{
    return of(file).methods().xShmMap(of(file).inner(), page, size, extend, into);
}

int lockShared(sqlite3_file* file, int offset, int count, int flags)
{
    const int result = of(file).methods().xShmLock(of(file).inner(), offset, count, flags);
    // The first of these locks is the writer's, where there is a write-ahead log.
    constexpr int exclusive = SQLITE_SHM_LOCK | SQLITE_SHM_EXCLUSIVE;
    if (result == SQLITE_OK && offset == 0 && flags == exclusive && watcher)
        watcher->after({.kind = FileCall::Kind::lockForWriting, .path = of(file).path});
    return result;
}

void barrier(sqlite3_file* file)
{
    of(file).methods().xShmBarrier(of(file).inner());
}

int unmapShared(sqlite3_file* file, int remove)
{
    return of(file).methods().xShmUnmap(of(file).inner(), remove);
}

int fetch(sqlite3_file* file, sqlite3_int64 offset, int size, void** into)
{
    return of(file).methods().xFetch(of(file).inner(), offset, size, into);
}

int unfetch(sqlite3_file* file, sqlite3_int64 offset, void* from)
{
    return of(file).methods().xUnfetch(of(file).inner(), offset, from);
}

constexpr sqlite3_io_methods fileMethods{
    3,          closeFile,  readFile,      writeFile, truncateFile, syncFile,        sizeOfFile,
    lockFile,   unlockFile, checkReserved, control,   sectorSize,   characteristics, mapShared,
    lockShared, barrier,    unmapShared,   fetch,     unfetch};

int openFile(sqlite3_vfs*, sqlite3_filename path, sqlite3_file* file, int flags, int* outFlags)
{
    auto& watched = *new (file) WatchedFile{.base = {nullptr}, .path = path ? path : ""};
    const auto open = [&]
    { return machine->xOpen(machine, path, watched.inner(), flags, outFlags); };
    const bool creates = path && (flags & SQLITE_OPEN_CREATE) != 0 && access(path, F_OK) != 0;
    const int result = creates ? make({.kind = FileCall::Kind::create, .path = watched.path},
                                      SQLITE_CANTOPEN, open)
                               : open();
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
    const int result = make({.kind = FileCall::Kind::remove, .path = path}, SQLITE_IOERR_DELETE,
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

void registerOnce()
{
    if (machine)
        return;
    machine = sqlite3_vfs_find(nullptr);
    openDirectory = reinterpret_cast<OpenDirectory>(
        machine ? machine->xGetSystemCall(machine, "openDirectory") : nullptr);
    if (!openDirectory)
        throw std::runtime_error("SQLite's file layer cannot be watched on this machine");
    machine->xSetSystemCall(machine, "openDirectory",
                            reinterpret_cast<sqlite3_syscall_ptr>(noteFolder));
    static auto vfs = derive(*machine);
    sqlite3_vfs_register(&vfs, 0);
}

}  // namespace

const char* watchedVFS()
{
    registerOnce();
    return name;
}

void watchFiles(std::shared_ptr<FileWatcher> next)
{
    watcher = std::move(next);
}

const std::shared_ptr<FileWatcher>& currentWatcher()
{
    return watcher;
}

}  // namespace soak
