#pragma once

#include "Platform/Security/Embedded/Patience.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace platform
{

class Database;

/// A prepared statement. `first` and `next` give its rows; when a `Statement::Use` ends, what was
/// bound is let go and a read that it began ends.
class Statement
{
public:
    Statement(Database& database, std::string_view text);

    class Use
    {
    public:
        explicit Use(Statement& statement) noexcept : statement_(statement) {}
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        /// The bytes must live as long as the use.
        Use& bind(int place, std::span<const std::byte> bytes);
        Use& bind(int place, std::string_view bytes);
        Use& bind(int place, std::int64_t number);

        /// Whether there is a further row.
        bool next();
        /// For statements without rows.
        void run() { next(); }

        /// Columns of the row; valid until `next`. Nothing where the type is another one.
        std::optional<std::int64_t> number(int column) const;
        std::optional<std::span<const std::byte>> bytes(int column) const;
        std::string_view text(int column) const;

    private:
        Statement& statement_;
    };

private:
    struct Finalize
    {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };

    Database& database_;
    std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

/// A connection to the store's SQLite file, hardened against what a stranger may have put there. It
/// knows nothing of items. One thread at a time; all throw `StoreFault`.
///
/// The process that opened it must be the one that uses it: the system does not pass file locks to
/// a child, and SQLite's own account of them would be wrong there.
class Database
{
public:
    /// Opens a file that exists; `file` must not go through links. An empty `vfs` is the default.
    Database(const std::filesystem::path& file, const std::string& vfs, const Patience& patience);

    /// Leaves the log behind: whoever knows that it is no longer needed calls `mergeLogAtClose`.
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// What the next operations may still wait. Must outlive them.
    void setPatience(const Patience& patience) noexcept { patience_ = &patience; }

    void execute(const char* text);

    bool inTransaction() const noexcept;
    /// A number that changes when another connection has changed the file. Inside a transaction.
    std::uint32_t changesByOthers();

    /// Copies the log into the file, as far as nobody reads an older state; whether that was all.
    bool merge();
    /// How many frames this connection has seen the log grow by since it was merged.
    int logGrowth() const noexcept { return logFrames_ - mergedFrames_; }

    /// For a connection that is about to be closed: begins a transaction, without waiting, if no
    /// other connection to the file exists, of any process. None can be opened then before the
    /// close.
    bool beginAlone();
    void mergeLogAtClose();

    [[noreturn]] void fail(int result, std::string_view attempt);

private:
    friend class Statement;
    friend class Statement::Use;

    struct Opened
    {
        Opened();
        ~Opened();
    };
    struct Close
    {
        void operator()(sqlite3* connection) const noexcept;
    };

    static int wait(void* self, int round);
    static int committed(void* self, sqlite3*, const char*, int frames);
    void harden();
    void configure();

    Opened opened_;
    std::unique_ptr<sqlite3, Close> handle_;
    const Patience* patience_;
    int logFrames_ = 0;
    int mergedFrames_ = 0;
};

}  // namespace platform
