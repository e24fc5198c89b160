#include "Platform/Security/Embedded/Database.hpp"

#include <sqlite3.h>

namespace platform
{

Statement::Statement(Database& database, std::string_view text) : database_(database)
{
    sqlite3_stmt* prepared = nullptr;
    const int result =
        sqlite3_prepare_v3(database.handle_.get(), text.data(), static_cast<int>(text.size()),
                           SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    handle_.reset(prepared);
    if (result != SQLITE_OK)
        database.fail(result, text);
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const noexcept
{
    sqlite3_finalize(statement);
}

Statement::Use::~Use()
{
    sqlite3_reset(statement_.handle_.get());
    sqlite3_clear_bindings(statement_.handle_.get());
}

Statement::Use& Statement::Use::bind(int place, std::span<const std::byte> bytes)
{
    // An empty text is a text, and no NULL.
    const void* start = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    const int result =
        sqlite3_bind_blob64(statement_.handle_.get(), place, start, bytes.size(), SQLITE_STATIC);
    if (result != SQLITE_OK)
        statement_.database_.fail(result, "binding");
    return *this;
}

Statement::Use& Statement::Use::bind(int place, std::string_view bytes)
{
    return bind(place, std::as_bytes(std::span(bytes)));
}

Statement::Use& Statement::Use::bind(int place, std::int64_t number)
{
    const int result = sqlite3_bind_int64(statement_.handle_.get(), place, number);
    if (result != SQLITE_OK)
        statement_.database_.fail(result, "binding");
    return *this;
}

bool Statement::Use::next()
{
    const int result = sqlite3_step(statement_.handle_.get());
    if (result == SQLITE_ROW)
        return true;
    if (result != SQLITE_DONE)
        statement_.database_.fail(result, sqlite3_sql(statement_.handle_.get()));
    return false;
}

std::optional<std::int64_t> Statement::Use::number(int column) const
{
    if (sqlite3_column_type(statement_.handle_.get(), column) != SQLITE_INTEGER)
        return std::nullopt;
    return sqlite3_column_int64(statement_.handle_.get(), column);
}

std::optional<std::span<const std::byte>> Statement::Use::bytes(int column) const
{
    sqlite3_stmt* handle = statement_.handle_.get();
    if (sqlite3_column_type(handle, column) != SQLITE_BLOB)
        return std::nullopt;
    const void* start = sqlite3_column_blob(handle, column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle, column));
    if (!start && sqlite3_errcode(sqlite3_db_handle(handle)) == SQLITE_NOMEM)
        statement_.database_.fail(SQLITE_NOMEM, "reading");
    return std::span(static_cast<const std::byte*>(start), size);
}

std::string_view Statement::Use::text(int column) const
{
    sqlite3_stmt* handle = statement_.handle_.get();
    const auto* start = sqlite3_column_text(handle, column);
    if (!start)
        return {};
    return {reinterpret_cast<const char*>(start),
            static_cast<std::size_t>(sqlite3_column_bytes(handle, column))};
}

}  // namespace platform
