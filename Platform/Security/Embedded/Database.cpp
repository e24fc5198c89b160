#include "Platform/Security/Embedded/Database.hpp"

#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreLimits.hpp"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <utility>

#include <sqlite3.h>

namespace platform
{
namespace
{

/// The process that has databases open, and how many: one number, for a child of `fork` must not
/// find a mutex that was held.
std::atomic<std::uint64_t> openDatabases = 0;

constexpr std::uint64_t ofThisProcess(std::uint64_t process)
{
    return process << 32;
}

constexpr auto countMask = ofThisProcess(1) - 1;

KeychainStatus statusOf(int result, int systemError)
{
    if (systemError == ENOSPC || systemError == EDQUOT)
        return KeychainStatus::diskFull;
    switch (result & 0xff)
    {
        case SQLITE_FULL:
            return KeychainStatus::diskFull;
        case SQLITE_IOERR:
            return result == SQLITE_IOERR_NOMEM       ? KeychainStatus::notAvailable
                   : result == SQLITE_IOERR_CORRUPTFS ? KeychainStatus::damaged
                                                      : KeychainStatus::inputOutput;
        case SQLITE_CANTOPEN:
            return systemError == EIO ? KeychainStatus::inputOutput : KeychainStatus::notAvailable;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
        case SQLITE_NOMEM:
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_INTERRUPT:
            return KeychainStatus::notAvailable;
        default:
            return KeychainStatus::damaged;
    }
}

std::pair<const char*, const char*> explanation(int result, KeychainStatus status)
{
    const int kind = result & 0xff;
    if (kind == SQLITE_BUSY || kind == SQLITE_LOCKED || kind == SQLITE_PROTOCOL)
        return {"another program holds the store",
                "Let the other program go on, or end it, and try again."};
    if (status == KeychainStatus::diskFull)
        return {"the disk is full", "Free some space on the disk."};
    if (status == KeychainStatus::inputOutput)
        return {"a file could not be read, written or synced", "Check the disk."};
    if (status == KeychainStatus::damaged)
        return {"the file is damaged",
                "Put back a copy of the keychain's files, or remove them to start anew."};
    return {"the file cannot be used", "Let the user own and write the keychain's folder."};
}

}  // namespace

Database::Opened::Opened()
{
    const auto mine = ofThisProcess(static_cast<std::uint64_t>(::getpid()));
    auto seen = openDatabases.load();
    do
    {
        if ((seen & countMask) != 0 && (seen & ~countMask) != mine)
            throw StoreFault(KeychainStatus::notAvailable,
                             "The process was forked while the keychain was open.",
                             "Use the keychain in the parent, or start a program of its own.");
    } while (!openDatabases.compare_exchange_weak(seen, mine | ((seen & countMask) + 1)));
}

Database::Opened::~Opened()
{
    --openDatabases;
}

void Database::Close::operator()(sqlite3* connection) const noexcept
{
    sqlite3_close_v2(connection);
}

Database::Database(const std::filesystem::path& file, const std::string& vfs,
                   const Patience& patience)
    : patience_(&patience)
{
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(
        file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW,
        vfs.empty() ? nullptr : vfs.c_str());
    handle_.reset(opened);
    if (result != SQLITE_OK)
        fail(result, "opening it");
    sqlite3_extended_result_codes(opened, 1);
    sqlite3_busy_handler(opened, wait, this);
    sqlite3_wal_hook(opened, committed, this);
    harden();
    configure();
}

Database::~Database() = default;

void Database::harden()
{
    constexpr std::pair<int, int> switches[] = {
        {SQLITE_DBCONFIG_DEFENSIVE, 1},        {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
        {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},   {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
        {SQLITE_DBCONFIG_ENABLE_FKEY, 0},      {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
        {SQLITE_DBCONFIG_DQS_DML, 0},          {SQLITE_DBCONFIG_DQS_DDL, 0},
        {SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1},
    };
    for (const auto& [name, value] : switches)
        sqlite3_db_config(handle_.get(), name, value, nullptr);

    constexpr std::pair<int, int> limits[] = {
        {SQLITE_LIMIT_LENGTH, storeLimits::row},
        {SQLITE_LIMIT_SQL_LENGTH, 4096},
        {SQLITE_LIMIT_ATTACHED, 0},
        {SQLITE_LIMIT_COLUMN, 32},
        {SQLITE_LIMIT_EXPR_DEPTH, 20},
        {SQLITE_LIMIT_COMPOUND_SELECT, 2},
        {SQLITE_LIMIT_VDBE_OP, 5000},
        {SQLITE_LIMIT_TRIGGER_DEPTH, 1},
        {SQLITE_LIMIT_WORKER_THREADS, 0},
    };
    for (const auto& [name, value] : limits)
        sqlite3_limit(handle_.get(), name, value);
}

void Database::configure()
{
    // One sync for each commit: the log is appended and synced, the file itself follows at leisure.
    // What is freed is overwritten, and nothing is mapped, so that a file that shrinks stops
    // nobody.
    for (const char* pragma :
         {"PRAGMA mmap_size=0", "PRAGMA cell_size_check=ON", "PRAGMA temp_store=MEMORY",
          "PRAGMA secure_delete=ON", "PRAGMA synchronous=FULL"})
        execute(pragma);
    Statement mode(*this, "PRAGMA journal_mode=WAL");
    Statement::Use use(mode);
    if (!use.next() || use.text(0) != "wal")
        throw StoreFault(KeychainStatus::notAvailable,
                         "The keychain file cannot be written through a log.",
                         "Keep the keychain on a local file system.");
}

int Database::wait(void* self, int round)
{
    const auto* patience = static_cast<Database*>(self)->patience_;
    return patience && patience->pause(round) ? 1 : 0;
}

int Database::committed(void* self, sqlite3*, const char*, int frames)
{
    auto& database = *static_cast<Database*>(self);
    if (frames < database.logFrames_)
        database.mergedFrames_ = 0;  // the log was begun anew
    database.logFrames_ = frames;
    return SQLITE_OK;
}

void Database::execute(const char* text)
{
    const int result = sqlite3_exec(handle_.get(), text, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK)
        fail(result, text);
}

bool Database::inTransaction() const noexcept
{
    return sqlite3_get_autocommit(handle_.get()) == 0;
}

std::uint32_t Database::changesByOthers()
{
    unsigned int version = 0;
    const int result =
        sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_DATA_VERSION, &version);
    if (result != SQLITE_OK)
        fail(result, "asking for changes");
    return version;
}

bool Database::merge()
{
    int frames = 0;
    int merged = 0;
    const int result = sqlite3_wal_checkpoint_v2(handle_.get(), "main", SQLITE_CHECKPOINT_PASSIVE,
                                                 &frames, &merged);
    if ((result & 0xff) == SQLITE_BUSY)
        return false;
    if (result != SQLITE_OK)
        fail(result, "merging its log");
    logFrames_ = frames;
    mergedFrames_ = merged;
    return frames == merged;
}

bool Database::beginAlone()
{
    patience_ = nullptr;
    execute("PRAGMA locking_mode=EXCLUSIVE");
    const int result = sqlite3_exec(handle_.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    if (result != SQLITE_OK && (result & 0xff) != SQLITE_BUSY)
        fail(result, "closing it");
    return result == SQLITE_OK;
}

void Database::mergeLogAtClose()
{
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

void Database::fail(int result, std::string_view attempt)
{
    const int systemError = handle_ ? sqlite3_system_errno(handle_.get()) : 0;
    const bool system = (result & 0xff) == SQLITE_IOERR || (result & 0xff) == SQLITE_CANTOPEN ||
                        (result & 0xff) == SQLITE_FULL;
    const auto status = statusOf(result, system ? systemError : 0);
    const auto [cause, nextStep] = explanation(result, status);
    throw StoreFault(status,
                     "The keychain file: " + std::string(cause) + " (" + std::string(attempt) +
                         ", result " + std::to_string(result) + ").",
                     nextStep);
}

}  // namespace platform
