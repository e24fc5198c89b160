#pragma once

#include "Platform/Security/Embedded/Database.hpp"

namespace platform
{

/// The statements that begin and end transactions, prepared once for each connection.
class Transactions
{
public:
    explicit Transactions(Database& database);

private:
    friend class Transaction;

    Database& database_;
    Statement read_, write_, commit_, rollback_;
};

/// One view of the store, or one change of it: all of it, or nothing, for every program. Ends
/// without a change unless `commit` was called and returned.
class Transaction
{
public:
    enum class Kind
    {
        read,
        /// Waits for other programs that write, as long as the connection's patience lasts.
        write,
    };

    Transaction(Transactions& statements, Kind kind);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Transactions& statements_;
};

}  // namespace platform
