#include "tools/account-server/Store.hpp"

#include "tools/account-server/Failure.hpp"
#include "tools/account-server/Files.hpp"
#include "tools/account-server/Random.hpp"

#include <sqlite3.h>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <string_view>
#include <type_traits>
#include <unordered_map>

namespace accountserver
{
namespace
{

constexpr int schemaVersion = 1;

constexpr auto schema = R"(
CREATE TABLE accounts (
    id INTEGER PRIMARY KEY,
    user TEXT NOT NULL UNIQUE,
    uuid TEXT NOT NULL,
    email TEXT,
    address TEXT UNIQUE,
    created REAL NOT NULL);
CREATE TABLE sessions (
    id TEXT PRIMARY KEY,
    token TEXT NOT NULL UNIQUE,
    account INTEGER NOT NULL REFERENCES accounts ON DELETE CASCADE,
    signed_in REAL NOT NULL) WITHOUT ROWID;
CREATE INDEX sessions_of_account ON sessions (account);
CREATE TABLE codes (
    address TEXT PRIMARY KEY,
    digits TEXT NOT NULL,
    expires REAL NOT NULL,
    wrong_tries INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE mails (address TEXT NOT NULL, at REAL NOT NULL);
CREATE INDEX mails_to_address ON mails (address, at);
CREATE TABLE terms (id INTEGER PRIMARY KEY, revision TEXT NOT NULL UNIQUE, published REAL NOT NULL);
CREATE TABLE consents (
    account INTEGER NOT NULL REFERENCES accounts ON DELETE CASCADE,
    revision TEXT NOT NULL REFERENCES terms (revision),
    language TEXT NOT NULL,
    at REAL NOT NULL,
    PRIMARY KEY (account, revision)) WITHOUT ROWID;
CREATE TABLE newsletter (
    account INTEGER PRIMARY KEY REFERENCES accounts ON DELETE CASCADE,
    at REAL NOT NULL);
)";

// The latest accepted revision in the order of publication, not in the order of consent.
#define ACCOUNT_COLUMNS                                                                   \
    "accounts.id, user, uuid, email, coalesce((SELECT consents.revision FROM consents "   \
    "JOIN terms USING (revision) WHERE consents.account = accounts.id ORDER BY terms.id " \
    "DESC LIMIT 1), '')"

}  // namespace

struct Store::Database
{
    sqlite3* handle = nullptr;
    std::unordered_map<std::string_view, sqlite3_stmt*> prepared;

    explicit Database(const std::filesystem::path& file)
    {
        const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
        if (sqlite3_open_v2(file.c_str(), &handle, flags, nullptr) != SQLITE_OK)
            fail();
        sqlite3_busy_timeout(handle, 2000);
    }
    ~Database()
    {
        for (const auto& [text, statement] : prepared)
            sqlite3_finalize(statement);
        sqlite3_close(handle);
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    [[noreturn]] void fail()
    {
        throw Failure(ExitCode::state, std::string("The account database cannot be used (") +
                                           sqlite3_errmsg(handle) +
                                           "). Look at the disk, or choose another --state.");
    }

    void script(const char* text)
    {
        if (sqlite3_exec(handle, text, nullptr, nullptr, nullptr) != SQLITE_OK)
            fail();
    }

    /// `text` must be a literal: it is the key under which the statement stays prepared.
    /// `row` is called with the statement for each row.
    template <class Row, class... Values>
    void query(std::string_view text, Row row, const Values&... values)
    {
        auto& statement = prepared[text];
        if (statement == nullptr &&
            sqlite3_prepare_v3(handle, text.data(), static_cast<int>(text.size()),
                               SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK)
            fail();
        int position = 0;
        (bind(statement, ++position, values), ...);
        int result = sqlite3_step(statement);
        for (; result == SQLITE_ROW; result = sqlite3_step(statement))
            row(statement);
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
        if (result != SQLITE_DONE)
            fail();
    }

    template <class... Values>
    int run(std::string_view text, const Values&... values)
    {
        query(text, [](sqlite3_stmt*) {}, values...);
        return sqlite3_changes(handle);
    }

    template <class Value>
    void bind(sqlite3_stmt* statement, int position, const Value& value)
    {
        // The texts live until the statement is reset, hence no copy.
        if constexpr (std::is_same_v<Value, std::optional<std::string>>)
        {
            if (value)
                bind(statement, position, *value);
        }
        else if constexpr (std::is_same_v<Value, std::string>)
            sqlite3_bind_text(statement, position, value.data(), static_cast<int>(value.size()),
                              SQLITE_STATIC);
        else if constexpr (std::is_floating_point_v<Value>)
            sqlite3_bind_double(statement, position, value);
        else
            sqlite3_bind_int64(statement, position, value);
    }
};

namespace
{

std::string textAt(sqlite3_stmt* statement, int column)
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

Account accountAt(sqlite3_stmt* statement)
{
    Account account;
    account.id = sqlite3_column_int64(statement, 0);
    account.user = textAt(statement, 1);
    account.uuid = textAt(statement, 2);
    if (sqlite3_column_type(statement, 3) != SQLITE_NULL)
        account.email = textAt(statement, 3);
    account.acceptedRevision = textAt(statement, 4);
    return account;
}

int versionOf(sqlite3* handle)
{
    int version = 0;
    const auto read = [](void* out, int, char** columns, char**)
    {
        *static_cast<int*>(out) = std::atoi(columns[0]);
        return 0;
    };
    sqlite3_exec(handle, "PRAGMA user_version", read, &version, nullptr);
    return version;
}

}  // namespace

Store::Store(const std::filesystem::path& file)
{
    // SQLite gives its journal files the mode of the database.
    if (!std::filesystem::exists(file))
        writeFile(file, "");
    database_ = std::make_unique<Database>(file);
    database_->script(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
        "PRAGMA foreign_keys = ON");
    const int version = versionOf(database_->handle);
    if (version > schemaVersion)
        throw Failure(ExitCode::state, file.string() + " was written by a newer server (schema " +
                                           std::to_string(version) + ", this one knows " +
                                           std::to_string(schemaVersion) +
                                           "). Start that server, or choose another --state.");
    if (version == 0)
    {
        Transaction transaction(*this);
        database_->script(schema);
        database_->script("PRAGMA user_version = 1");
        transaction.commit();
    }
}

Store::~Store() = default;

Store::Transaction::Transaction(Store& store) : store_(store)
{
    store_.database_->script("BEGIN IMMEDIATE");
}

Store::Transaction::~Transaction()
{
    if (open_)
        sqlite3_exec(store_.database_->handle, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Store::Transaction::commit()
{
    store_.database_->script("COMMIT");
    open_ = false;
}

void Store::putCode(const Code& code)
{
    database_->run("INSERT OR REPLACE INTO codes VALUES (?, ?, ?, ?)", code.address, code.digits,
                   code.expires, code.wrongTries);
}

std::optional<Code> Store::code(const std::string& address)
{
    std::optional<Code> found;
    database_->query(
        "SELECT digits, expires, wrong_tries FROM codes WHERE address = ?",
        [&](sqlite3_stmt* row)
        {
            found = Code{address, textAt(row, 0), sqlite3_column_double(row, 1),
                         sqlite3_column_int(row, 2)};
        },
        address);
    return found;
}

void Store::countWrongTry(const std::string& address)
{
    database_->run("UPDATE codes SET wrong_tries = wrong_tries + 1 WHERE address = ?", address);
}

void Store::removeCode(const std::string& address)
{
    database_->run("DELETE FROM codes WHERE address = ?", address);
}

void Store::noteMail(const std::string& address, double at)
{
    database_->run("INSERT INTO mails VALUES (?, ?)", address, at);
}

Store::Mails Store::mails(const std::string& address, double since, double now)
{
    database_->run("DELETE FROM mails WHERE at <= ? OR at > ?", since, now);
    Mails mails;
    database_->query(
        "SELECT count(*), coalesce(min(at), 0) FROM mails WHERE address = ?", [&](sqlite3_stmt* row)
        { mails = {sqlite3_column_int(row, 0), sqlite3_column_double(row, 1)}; }, address);
    return mails;
}

Account Store::createAccount(const std::optional<std::string>& email, double now)
{
    Account account;
    account.user = "user-" + randomText();
    account.uuid = to_string(boost::uuids::random_generator()());
    account.email = email;
    const auto address = email ? std::optional(comparable(*email)) : std::nullopt;
    database_->run(
        "INSERT INTO accounts (user, uuid, email, address, created) VALUES (?, ?, ?, ?, ?)",
        account.user, account.uuid, account.email, address, now);
    account.id = sqlite3_last_insert_rowid(database_->handle);
    return account;
}

std::optional<Account> Store::accountWithAddress(const std::string& address)
{
    std::optional<Account> found;
    database_->query(
        "SELECT " ACCOUNT_COLUMNS " FROM accounts WHERE address = ?",
        [&](sqlite3_stmt* row) { found = accountAt(row); }, address);
    return found;
}

void Store::setEmail(std::int64_t account, const std::string& email)
{
    database_->run("UPDATE accounts SET email = ?, address = ? WHERE id = ?", email,
                   comparable(email), account);
}

void Store::removeAccount(std::int64_t account)
{
    database_->run("DELETE FROM accounts WHERE id = ?", account);
}

void Store::addSession(const Session& session, const std::string& tokenDigest)
{
    database_->run("INSERT INTO sessions VALUES (?, ?, ?, ?)", session.id, tokenDigest,
                   session.account.id, session.signedInAt);
}

std::optional<Session> Store::sessionWithToken(const std::string& tokenDigest)
{
    std::optional<Session> found;
    database_->query(
        "SELECT " ACCOUNT_COLUMNS
        ", sessions.id, signed_in FROM sessions "
        "JOIN accounts ON accounts.id = sessions.account WHERE token = ?",
        [&](sqlite3_stmt* row)
        { found = Session{textAt(row, 5), accountAt(row), sqlite3_column_double(row, 6)}; },
        tokenDigest);
    return found;
}

void Store::removeSession(const std::string& session)
{
    removeSessions(session, "");
}

int Store::removeSessions(const std::string& session, const std::string& user)
{
    return database_->run(
        "DELETE FROM sessions WHERE id = ? OR account = (SELECT id FROM accounts WHERE user = ?)",
        session, user);
}

int Store::ageSessions(const std::string& session, const std::string& user, double seconds)
{
    return database_->run(
        "UPDATE sessions SET signed_in = signed_in - ? WHERE id = ? OR account = "
        "(SELECT id FROM accounts WHERE user = ?)",
        seconds, session, user);
}

std::string Store::currentTerms()
{
    std::string revision;
    database_->query("SELECT revision FROM terms ORDER BY id DESC LIMIT 1",
                     [&](sqlite3_stmt* row) { revision = textAt(row, 0); });
    return revision;
}

bool Store::publishTerms(const std::string& revision, double now)
{
    return 0 < database_->run("INSERT OR IGNORE INTO terms (revision, published) VALUES (?, ?)",
                              revision, now);
}

void Store::consent(std::int64_t account, const std::string& revision, const std::string& language,
                    double now)
{
    database_->run("INSERT OR REPLACE INTO consents VALUES (?, ?, ?, ?)", account, revision,
                   language, now);
}

void Store::subscribe(std::int64_t account, double now)
{
    database_->run("INSERT OR IGNORE INTO newsletter VALUES (?, ?)", account, now);
}

std::string comparable(std::string email)
{
    for (auto& character : email)
    {
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character - 'A' + 'a');
    }
    return email;
}

}  // namespace accountserver
