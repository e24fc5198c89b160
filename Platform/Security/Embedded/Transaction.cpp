#include "Platform/Security/Embedded/Transaction.hpp"

#include "Platform/Security/Embedded/StoreFault.hpp"

namespace platform
{

Transactions::Transactions(Database& database)
    : database_(database),
      read_(database, "BEGIN"),
      write_(database, "BEGIN IMMEDIATE"),
      commit_(database, "COMMIT"),
      rollback_(database, "ROLLBACK")
{}

Transaction::Transaction(Transactions& statements, Kind kind) : statements_(statements)
{
    Statement::Use(kind == Kind::read ? statements_.read_ : statements_.write_).run();
}

Transaction::~Transaction()
{
    if (!statements_.database_.inTransaction())
        return;
    try
    {
        Statement::Use(statements_.rollback_).run();
    }
    catch (const StoreFault&)
    {
        // What cannot be rolled back here is when the connection is closed: nobody uses it on.
    }
}

void Transaction::commit()
{
    Statement::Use(statements_.commit_).run();
}

}  // namespace platform
