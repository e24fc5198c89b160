#include "benchmarks/PairedBlocks.hpp"

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Valet/Valet.hpp"

#include <filesystem>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace
{

constexpr std::size_t itemCount = 20;
const std::string value(1024, 'v');

void require(bool good, const char* what)
{
    if (!good)
        throw std::runtime_error(what);
}

/// A folder below the working folder, since a memory file system would show no disk.
class Folder
{
public:
    Folder()
    {
        auto pattern = (std::filesystem::current_path() / "bench-keychain-XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr, "no folder");
        path = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path); }

    std::filesystem::path path;
};

std::string key(std::size_t index)
{
    return "key " + std::to_string(index);
}

std::shared_ptr<valet::Valet> filledStore(const Folder& folder)
{
    platform::EmbeddedItemStore::Configuration configuration;
    configuration.dataFolder = folder.path / "data";
    configuration.keyFolder = folder.path / "key";
    auto surroundings = []
    { return platform::KeychainSurroundings{{.identifier = "benchmark"}, {}}; };
    auto keychain = std::make_shared<platform::StoreKeychain>(
        std::make_shared<platform::EmbeddedItemStore>(std::move(configuration)), surroundings);
    auto store = valet::Valet::valet("Tokens", valet::Accessibility::afterFirstUnlock, keychain);
    for (std::size_t i = 0; i < itemCount; ++i)
        store->setString(value, key(i));
    return store;
}

/// Appends as many bytes and syncs them, which is the least that a durable write can be.
class SyncedFile
{
public:
    explicit SyncedFile(const std::filesystem::path& file)
        : descriptor_(open(file.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600))
    {
        require(descriptor_ >= 0, "no file");
    }
    ~SyncedFile() { close(descriptor_); }

    void append()
    {
        require(write(descriptor_, value.data(), value.size()) == ssize_t(value.size()), "write");
        require(fdatasync(descriptor_) == 0, "fdatasync");
    }

private:
    int descriptor_;
};

/// A prepared read of one value by the same four attributes, from a table that SQLite keeps in
/// plain text.
class PreparedRead
{
public:
    explicit PreparedRead(const std::filesystem::path& file)
    {
        require(sqlite3_open(file.c_str(), &database_) == SQLITE_OK, "open");
        execute("PRAGMA journal_mode=WAL");
        execute(
            "CREATE TABLE item (service, account, grp, sync, data, "
            "PRIMARY KEY (service, account, grp, sync)) WITHOUT ROWID");
        for (std::size_t i = 0; i < itemCount; ++i)
            execute("INSERT INTO item VALUES ('" + service_ + "', '" + key(i) +
                    "', 'benchmark', 0, '" + value + "')");
        require(sqlite3_prepare_v2(database_,
                                   "SELECT data FROM item WHERE service = ? AND account = ? AND "
                                   "grp = ? AND sync = ?",
                                   -1, &read_, nullptr) == SQLITE_OK,
                "prepare");
    }
    ~PreparedRead()
    {
        sqlite3_finalize(read_);
        sqlite3_close(database_);
    }

    std::string read(const std::string& account)
    {
        sqlite3_bind_text(read_, 1, service_.data(), int(service_.size()), SQLITE_STATIC);
        sqlite3_bind_text(read_, 2, account.data(), int(account.size()), SQLITE_STATIC);
        sqlite3_bind_text(read_, 3, "benchmark", 9, SQLITE_STATIC);
        sqlite3_bind_int(read_, 4, 0);
        require(sqlite3_step(read_) == SQLITE_ROW, "step");
        const auto* data = static_cast<const char*>(sqlite3_column_blob(read_, 0));
        std::string copied(data, static_cast<std::size_t>(sqlite3_column_bytes(read_, 0)));
        sqlite3_reset(read_);
        return copied;
    }

private:
    void execute(const std::string& statement)
    {
        require(sqlite3_exec(database_, statement.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
                "execute");
    }

    const std::string service_ =
        "VAL_VALValet_initWithIdentifier:accessibility:_Tokens_AccessibleAfterFirstUnlock";
    sqlite3* database_ = nullptr;
    sqlite3_stmt* read_ = nullptr;
};

void setObject(benchmark::State& state)
{
    const Folder folder;
    const auto store = filledStore(folder);
    SyncedFile file(folder.path / "file");
    std::size_t written = 0;

    const auto set = [&](std::size_t) { store->setString(value, key(written++ % itemCount)); };
    const auto append = [&](std::size_t) { file.append(); };
    compareInBlocks(state, {.goal = 2.5,
                            .measured = {"setObject", 1, set},
                            .limit = {"append and fdatasync", 1, append},
                            .waits = true});
}

void objectForKey(benchmark::State& state)
{
    const Folder folder;
    const auto store = filledStore(folder);
    PreparedRead prepared(folder.path / "plain.db");
    const auto wanted = key(itemCount / 2);

    const auto get = [&](std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            auto read = store->object(wanted);
            benchmark::DoNotOptimize(read);
        }
    };
    const auto read = [&](std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            auto copied = prepared.read(wanted);
            benchmark::DoNotOptimize(copied);
        }
    };
    compareInBlocks(state, {.goal = 3,
                            .measured = {"objectForKey", 200, get},
                            .limit = {"prepared SQLite read", 200, read}});
}

BENCHMARK(setObject)
    ->Name("keychain-set")
    ->Iterations(2000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(objectForKey)
    ->Name("keychain-get")
    ->Iterations(400)
    ->UseManualTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
