#include "Platform/Security/Embedded/OpenStore.hpp"

#include "Platform/Security/Embedded/StoreFault.hpp"

namespace platform
{
namespace
{

/// Two syncs each time, so not often; but the log is read whenever a program finds it after a kill.
constexpr int longLog = 512;

FileFacts requireFacts(const std::filesystem::path& file)
{
    const auto facts = privateFactsOf(file);
    if (!facts)
        throw StoreFault(KeychainStatus::notAvailable, file.string() + " is missing.",
                         "Put back a copy of the keychain's files, or remove them to start anew.");
    return *facts;
}

FileFacts checked(const StorePlaces& places)
{
    for (const auto& file : {places.log, places.logIndex, places.rollback})
        privateFactsOf(file);
    return requireFacts(places.database);
}

/// For a destructor, which must not end the process where memory is short.
void report(const DiagnosticSink& diagnostics, const StoreFault& fault) noexcept
{
    try
    {
        if (diagnostics)
            diagnostics(fault.diagnostic());
    }
    catch (...)
    {}
}

}  // namespace

OpenStore::OpenStore(const StorePlaces& places,
                     const EmbeddedItemStore::Configuration& configuration,
                     std::shared_ptr<const MasterKey> key, const Patience& patience)
    : places_(places),
      diagnostics_(configuration.diagnostics),
      key_(std::move(key)),
      file_(checked(places)),
      // Links above the folder are followed once, here, and a link in the file's place never.
      database_(std::filesystem::canonical(places.dataFolder) / places.database.filename(),
                configuration.vfs, patience)
{
    transactions_.emplace(database_);
    {
        const Transaction reading(*transactions_, Transaction::Kind::read);
        ItemTable::check(database_, *key_);
        table_.emplace(database_, key_);
    }
    log_ = requireFacts(places_.log);
    recover();
    if (!isInPlace() || !isLogInPlace())
        throw StoreFault(KeychainStatus::notAvailable,
                         "The keychain file was replaced while it was opened.", "Try again.");
}

/// What a killed program left in the log is as good as acknowledged once somebody has read it, so
/// it is made durable first. A log that is needed and not there is remembered for good: what it
/// held may be missing from now on.
void OpenStore::recover()
{
    const auto logIsGone = [&]
    {
        const auto log = factsOf(places_.log);
        return !log || log->size == 0;
    };
    LogState state;
    bool gone = false;
    {
        const Transaction reading(*transactions_, Transaction::Kind::read);
        state = table_->header().log;
        gone = logIsGone();
    }
    if (state != LogState::needed || !gone)
    {
        const bool merged = log_.size > 0 && merge();
        fileNamesLog_ = merged && state == LogState::needed;
        if (state == LogState::lost)
            reportLostLog();
        return;
    }
    Transaction change(*transactions_, Transaction::Kind::write);
    auto header = table_->header();
    if (header.log != LogState::needed || !logIsGone())
        return;
    header.log = LogState::lost;
    table_->write(header);
    change.commit();
    reportLostLog();
}

void OpenStore::reportLostLog() const
{
    if (diagnostics_)
        diagnostics_({"keychain",
                      "The keychain's log, " + places_.log.string() +
                          ", was removed while it was needed: items may be older than they were, "
                          "or missing.",
                      "Put back a copy of the keychain's files, or store anew what is not as it "
                      "should be."});
}

bool OpenStore::isInPlace() const
{
    const auto file = factsOf(places_.database);
    return file && file->isSameFile(file_);
}

bool OpenStore::isLogInPlace() const
{
    const auto log = factsOf(places_.log);
    return log && log->isSameFile(log_);
}

void OpenStore::secureCommit()
{
    keepLogShort();
    if (!isInPlace() || !isLogInPlace())
        throw StoreFault(
            KeychainStatus::inputOutput,
            "The keychain's files were replaced or removed while an item was stored: " +
                places_.database.string() + ", " + places_.log.string(),
            "Leave the files in place while programs use them, and try again.");
}

void OpenStore::keepLogShort()
{
    // After its first change a connection sees to it that the file itself says that its log is
    // needed. SQLite alone takes a database without a log for an older one with no changes since.
    if (!fileNamesLog_ || database_.logGrowth() >= longLog)
        fileNamesLog_ = merge() || fileNamesLog_;
}

bool OpenStore::merge()
{
    try
    {
        return database_.merge();
    }
    catch (const StoreFault& fault)
    {
        if (diagnostics_)
            diagnostics_(fault.diagnostic());
        return false;
    }
}

OpenStore::~OpenStore()
{
    // Wherever this ends, the log stays, and whoever opens the store next takes it up.
    try
    {
        // A transaction that could not be rolled back is so by the close.
        if (!database_.inTransaction() && isInPlace() && isLogInPlace())
            closeAlone();
    }
    catch (const StoreFault& fault)
    {
        report(diagnostics_, fault);
    }
    catch (...)
    {}
}

void OpenStore::closeAlone()
{
    if (!database_.beginAlone())
        return;
    auto header = table_->header();
    if (header.log == LogState::needed)
    {
        header.log = LogState::merged;
        table_->write(header);
    }
    database_.execute("COMMIT");
    database_.mergeLogAtClose();
}

}  // namespace platform
