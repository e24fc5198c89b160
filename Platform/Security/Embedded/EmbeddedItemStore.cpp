#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"

#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/ItemMatching.hpp"
#include "Platform/Security/Embedded/OpenStore.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreLimits.hpp"
#include "Platform/Security/Embedded/TableChange.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace platform
{
namespace
{

void requireStorable(const KeychainItem& item)
{
    const auto& [service, account, group, synchronizable] = item.identity;
    if (service.size() > keychainLimits::service || account.size() > keychainLimits::account ||
        group.size() > keychainLimits::accessGroup || item.data.size() > storeLimits::value)
        throw StoreFault(KeychainStatus::parameter, "The item is too long for the keychain.",
                         "Keep keys to 1 KiB and values to 4 MiB.");
}

}  // namespace

class EmbeddedItemStore::State
{
public:
    explicit State(Configuration configuration)
        : configuration_(std::move(configuration)),
          files_(configuration_.files ? configuration_.files : std::make_shared<FileLayer>())
    {}

    ~State()
    {
        // A child of the process that opened the store must not close it: SQLite would take locks
        // and files away from the parent.
        if (opener_ != 0 && opener_ != ::getpid())
            (void)open_.release();
    }

    template <class Operation>
    KeychainStatus read(const Operation& operation)
    {
        return guarded([&](const Patience& patience) { return operation(store(patience)); });
    }

    template <class Operation>
    KeychainStatus change(const Operation& operation)
    {
        return guarded(
            [&](const Patience& patience)
            {
                if (open_ && !open_->isLogInPlace())
                    open_.reset();
                return operation(store(patience));
            });
    }

    KeychainStatus rewrap(const std::optional<SecretString>& current,
                          const std::optional<SecretString>& replacement)
    {
        return guarded(
            [&](const Patience& patience)
            {
                rewrapKey(configuration_, *files_, patience, current, replacement);
                return KeychainStatus::success;
            });
    }

    void close() noexcept
    {
        if (opener_ != 0 && opener_ != ::getpid())
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

private:
    /// For as long as an operation runs: says which thread runs it, and drops a connection whose
    /// transaction outlived the operation, since only closing it can roll that back.
    class Running
    {
    public:
        explicit Running(State& state) : state_(state)
        {
            state_.holder_ = std::this_thread::get_id();
        }
        ~Running()
        {
            if (state_.open_ && state_.open_->database().inTransaction())
                state_.open_.reset();
            state_.holder_ = std::thread::id();
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

    private:
        State& state_;
    };

    /// Runs an operation alone among this store's threads, and tells why it did not succeed.
    template <class Operation>
    KeychainStatus guarded(const Operation& operation)
    {
        try
        {
            const Patience patience(configuration_.patience);
            // Before the mutex, which a thread that the child does not have may hold for ever.
            if (opener_ != 0 && opener_ != ::getpid())
                throw StoreFault(KeychainStatus::notAvailable,
                                 "The process was forked while the keychain was open.",
                                 "Use the keychain in the parent, or start a program of its own.");
            const std::unique_lock lock(mutex_, patience.end());
            if (!lock.owns_lock())
                throw StoreFault(KeychainStatus::notAvailable,
                                 "Other threads hold the store: they wait for another program.",
                                 "Let the other program go on, or end it, and try again.");
            const Running running(*this);
            return carriedOut(operation, patience);
        }
        catch (const StoreFault& fault)
        {
            if (configuration_.diagnostics)
                configuration_.diagnostics(fault.diagnostic());
            return fault.status();
        }
    }

    template <class Operation>
    KeychainStatus carriedOut(const Operation& operation, const Patience& patience)
    {
        try
        {
            return operation(patience);
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
            throw StoreFault::ofSystem("Cannot use " + error.path1().string(),
                                       error.code().value());
        }
    }

    OpenStore& store(const Patience& patience)
    {
        if (open_)
            open_->database().setPatience(patience);
        if (open_ && !open_->isInPlace())
            open_.reset();
        if (!open_)
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
        return *open_;
    }

    const Configuration configuration_;
    const std::shared_ptr<FileLayer> files_;
    std::atomic<pid_t> opener_ = 0;
    std::timed_mutex mutex_;
    std::atomic<std::thread::id> holder_;
    std::unique_ptr<OpenStore> open_;
};

EmbeddedItemStore::EmbeddedItemStore(Configuration configuration)
    : state_(std::make_unique<State>(std::move(configuration)))
{}

EmbeddedItemStore::~EmbeddedItemStore() = default;

void EmbeddedItemStore::close() noexcept
{
    state_->close();
}

KeychainStatus EmbeddedItemStore::add(const KeychainItem& item)
{
    return replace(ItemPattern{}, item);
}

KeychainStatus EmbeddedItemStore::replace(const ItemPattern& old, const KeychainItem& item)
{
    return state_->change(
        [&](OpenStore& store)
        {
            requireStorable(item);
            TableChange change(store.table(), store.transactions());
            if (!old.accessGroups.empty())
            {
                for (const auto& row : matching(store.table(), old))
                    change.erase(row);
            }
            const auto rival = store.table().find(item.identity);
            if (rival)
                store.table().requireGenuine(*rival);
            else
                change.insert(item);
            if (!change.isEmpty())
            {
                change.commit();
                store.secureCommit();
            }
            return rival ? KeychainStatus::duplicateItem : KeychainStatus::success;
        });
}

KeychainAnswer EmbeddedItemStore::copyMatching(const ItemPattern& pattern, ItemContent content,
                                               std::size_t limit)
{
    KeychainAnswer answer;
    answer.status = state_->read(
        [&](OpenStore& store)
        {
            const bool withData = content == ItemContent::attributesAndData;
            if (withData && limit == 1)
            {
                if (auto item = taken(store.table(), pattern))
                {
                    answer.items.push_back(std::move(*item));
                    return KeychainStatus::success;
                }
            }
            const Transaction reading(store.transactions(), Transaction::Kind::read);
            auto rows = answering(store.table(), pattern, withData, limit);
            if (rows.empty())
                return KeychainStatus::itemNotFound;
            rows.resize(std::min(limit, rows.size()));
            for (auto& row : rows)
            {
                if (withData)
                    row.attributes.data = store.table().value(row);
                answer.items.push_back(std::move(row.attributes));
            }
            return KeychainStatus::success;
        });
    if (answer.status != KeychainStatus::success)
        answer.items.clear();
    return answer;
}

KeychainStatus EmbeddedItemStore::deleteMatching(const ItemPattern& pattern)
{
    return state_->change(
        [&](OpenStore& store)
        {
            TableChange change(store.table(), store.transactions());
            for (const auto& row : matching(store.table(), pattern))
                change.erase(row);
            if (change.isEmpty())
            {
                requireNoneMissing(store.table(), pattern);
                return KeychainStatus::itemNotFound;
            }
            change.commit();
            store.secureCommit();
            return KeychainStatus::success;
        });
}

KeychainStatus EmbeddedItemStore::update(
    const KeychainIdentity& identity,
    const std::function<std::optional<SecretBytes>(const SecretBytes*)>& change)
{
    return state_->change(
        [&](OpenStore& store)
        {
            KeychainItem item{.identity = identity, .data = {}};
            TableChange tableChange(store.table(), store.transactions());
            const auto row = store.table().find(identity);
            std::optional<SecretBytes> stored;
            if (row)
            {
                stored = store.table().value(*row);
                item.accessible = row->attributes.accessible;
                item.accessControl = row->attributes.accessControl;
            }
            else
                store.table().requireAbsent(identity);
            auto data = change(stored ? &*stored : nullptr);
            if (!data || (data->empty() && !row))
                return KeychainStatus::success;
            item.data = std::move(*data);
            requireStorable(item);
            if (row)
                tableChange.erase(*row);
            if (!item.data.empty())
                tableChange.insert(item);
            tableChange.commit();
            store.secureCommit();
            return KeychainStatus::success;
        });
}

KeychainStatus EmbeddedItemStore::changePassphrase(const std::optional<SecretString>& current,
                                                   const std::optional<SecretString>& replacement)
{
    return state_->rewrap(current, replacement);
}

}  // namespace platform
