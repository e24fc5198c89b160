#include "Platform/Security/Embedded/StoreAccess.hpp"

#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"

#include <unistd.h>

#include <new>
#include <utility>

namespace platform
{

/// For as long as an operation runs: says which thread runs it, and drops a connection whose
/// transaction outlived the operation, since only closing it can roll that back.
class StoreAccess::Running
{
public:
    explicit Running(StoreAccess& access) : access_(access)
    {
        access_.holder_ = std::this_thread::get_id();
    }
    ~Running()
    {
        if (access_.open_ && access_.open_->database().inTransaction())
            access_.open_.reset();
        access_.holder_ = std::thread::id();
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    StoreAccess& access_;
};

StoreAccess::StoreAccess(EmbeddedItemStore::Configuration configuration)
    : configuration_(std::move(configuration)),
      files_(configuration_.files ? configuration_.files : std::make_shared<FileLayer>())
{}

StoreAccess::~StoreAccess()
{
    // A child of the process that opened the store must not close it: SQLite would take locks and
    // files away from the parent.
    if (isInForkedChild())
        (void)open_.release();
}

KeychainStatus StoreAccess::rewrap(const std::optional<SecretString>& current,
                                   const std::optional<SecretString>& replacement)
{
    return guarded(
        [&](const Patience& patience)
        {
            rewrapKey(configuration_, *files_, patience, current, replacement);
            return KeychainStatus::success;
        });
}

void StoreAccess::close() noexcept
{
    if (isInForkedChild())
        return;
    // A program may end inside one of our callbacks, which holds the mutex already.
    if (holder_ == std::this_thread::get_id())
        return;
    try
    {
        const Patience patience(configuration_.patience);
        const std::unique_lock lock(mutex_, patience.end());
        if (!lock.owns_lock())
            return;
        open_.reset();
        opener_ = 0;
    }
    catch (...)
    {
        // The log stays, and whoever opens the store next takes it up.
    }
}

KeychainStatus StoreAccess::carryOut(const Attempt& attempt)
{
    try
    {
        return carryOutAlone(attempt);
    }
    catch (const StoreFault& fault)
    {
        if (configuration_.diagnostics)
            configuration_.diagnostics(fault.diagnostic());
        return fault.status();
    }
}

KeychainStatus StoreAccess::carryOutAlone(const Attempt& attempt)
{
    const Patience patience(configuration_.patience);
    // Before the mutex, which a thread that the child does not have may hold for ever.
    if (isInForkedChild())
        throw StoreFault(KeychainStatus::notAvailable,
                         "The process was forked while the keychain was open.",
                         "Use the keychain in the parent, or start a program of its own.");
    const std::unique_lock lock(mutex_, patience.end());
    if (!lock.owns_lock())
        throw StoreFault(KeychainStatus::notAvailable,
                         "Other threads hold the store: they wait for another program.",
                         "Let the other program go on, or end it, and try again.");
    const Running running(*this);
    return withoutStrangers(attempt, patience);
}

/// Turns what others throw into faults.
KeychainStatus StoreAccess::withoutStrangers(const Attempt& attempt, const Patience& patience)
{
    try
    {
        return attempt(patience);
    }
    catch (const StoreFault& fault)
    {
        // It may be put right by a copy in the same place, which calls for a new connection.
        if (fault.status() == KeychainStatus::damaged)
            open_.reset();
        throw;
    }
    catch (const std::bad_alloc&)
    {
        throw StoreFault(KeychainStatus::notAvailable, "There is too little memory.",
                         "Free memory and try again.");
    }
    catch (const std::filesystem::filesystem_error& error)
    {
        throw StoreFault::ofSystem("Cannot use " + error.path1().string(), error.code().value());
    }
}

OpenStore& StoreAccess::storeToChange(const Patience& patience)
{
    if (open_ && !open_->isLogInPlace())
        open_.reset();
    return store(patience);
}

OpenStore& StoreAccess::store(const Patience& patience)
{
    if (open_)
        open_->database().setPatience(patience);
    if (open_ && !open_->isInPlace())
        open_.reset();
    if (!open_)
        open(patience);
    return *open_;
}

void StoreAccess::open(const Patience& patience)
{
    opener_ = ::getpid();
    try
    {
        open_ = openStore(configuration_, *files_, patience);
    }
    catch (...)
    {
        opener_ = 0;
        throw;
    }
}

bool StoreAccess::isInForkedChild() const noexcept
{
    const auto opener = opener_.load();
    return opener != 0 && opener != ::getpid();
}

}  // namespace platform
