#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"

#include "Platform/Security/SecretService/CollectionUnlocking.hpp"
#include "Platform/Security/SecretService/GLibThread.hpp"
#include "Platform/Security/SecretService/SecretConnection.hpp"
#include "Platform/Security/SecretService/SecretOperations.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"
#include "Platform/Security/SecretService/SecretServiceNames.hpp"
#include "Platform/Security/SecretService/WriterLock.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace platform
{
namespace
{

/// The process in which a store was first used, or 0. One number for all stores: a child of `fork`
/// has none of GLib's threads, which all connections share.
std::atomic<pid_t> user = 0;

bool isForked()
{
    const pid_t first = user;
    return first != 0 && first != getpid();
}

/// To be called before anything that a child could inherit in the middle of a change.
void beginUse()
{
    pid_t first = 0;
    if (!user.compare_exchange_strong(first, getpid()) && first != getpid())
        throw secretServiceFailures::forked();
}

std::string sessionBusAddress()
{
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address)
        return address;
    // Where a user's systemd offers it. GLib would go on and start a bus of its own.
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string socket = runtime ? std::string(runtime) + "/bus" : std::string();
    struct stat status{};
    return runtime && stat(socket.c_str(), &status) == 0 ? "unix:path=" + socket : std::string();
}

SecretServiceItemStore::Configuration completed(SecretServiceItemStore::Configuration configuration)
{
    if (configuration.lockFolder.empty())
        configuration.lockFolder = WriterLock::defaultFolder();
    if (configuration.busAddress.empty())
        configuration.busAddress = sessionBusAddress();
    return configuration;
}

/// The connection and the thread that it lives on.
struct Line
{
    Line(const SecretLibrary& library, std::string busAddress)
        : connection(library, std::move(busAddress)),
          thread(library, [this] { connection.close(); })
    {}

    /// Runs `work` on the thread. Once more where the service went away before anything was done,
    /// and again for a read where it went away at any moment: it may have been started anew.
    template <class Result>
    Result ask(Deadline deadline, bool changes, std::function<Result(SecretItems&)> work)
    {
        return thread.ask<Result>(deadline, [this, changes, work = std::move(work)](const GWork& at)
                                  { return attempt<Result>(changes, work, at); });
    }

    SecretConnection connection;
    GLibThread thread;

private:
    using Kind = SecretServiceFailure::Kind;

    template <class Result>
    Result attempt(bool changes, const std::function<Result(SecretItems&)>& work, const GWork& at)
    {
        for (int attempts = 3;; --attempts)
            try
            {
                SecretItems items(connection, at);
                return work(items);
            }
            catch (const SecretServiceFailure& failure)
            {
                const bool isLost =
                    failure.kind() == Kind::gone || failure.kind() == Kind::answerLost;
                if (isLost)
                    connection.close();
                if (!isLost || attempts == 1 || (changes && failure.kind() != Kind::gone))
                    throw;
            }
    }
};

}  // namespace

struct SecretServiceItemStore::State
{
    explicit State(Configuration given) : configuration(completed(std::move(given))) {}

    ~State()
    {
        // The connection and the thread are the parent's.
        if (isForked())
            (void)existingLine.release();
    }

    Deadline deadline() const { return std::chrono::steady_clock::now() + configuration.limit; }

    /// The library, the connection and the thread appear with the first use.
    Line& line()
    {
        const std::lock_guard lock(mutex);
        if (ending.stop_requested())
            throw secretServiceFailures::shutDown();
        if (!existingLine)
            existingLine = std::make_unique<Line>(SecretLibrary::load(configuration.library),
                                                  configuration.busAddress);
        return *existingLine;
    }

    KeychainStatus report(const SecretServiceFailure& failure) const
    {
        if (configuration.diagnostics)
            configuration.diagnostics(failure.diagnostic());
        return failure.status();
    }

    /// Runs `operation`, and turns a failure into a status after it was reported. A forked child is
    /// refused before it touches a mutex, which a thread that it does not have may hold for ever.
    template <class Operation>
    KeychainStatus status(Operation operation) const
    {
        try
        {
            beginUse();
            return operation();
        }
        catch (const SecretServiceFailure& failure)
        {
            return report(failure);
        }
    }

    std::shared_ptr<WriterLock> turnToWrite(Deadline until) const
    {
        return std::make_shared<WriterLock>(configuration.lockFolder, until);
    }

    std::string newItems() const
    {
        return secretServiceNames::aliasFolder + configuration.collection;
    }

    KeychainStatus store(const ItemPattern* old, const KeychainItem& item);
    void unlock(std::stop_token ended, std::chrono::milliseconds limit);

    const Configuration configuration;
    std::mutex mutex;
    /// Stopped by the shutdown, under the mutex.
    std::stop_source ending;
    std::unique_ptr<Line> existingLine;
    int unlockings = 0;
    std::condition_variable unlockingEnded;
};

KeychainStatus SecretServiceItemStore::State::store(const ItemPattern* old,
                                                    const KeychainItem& item)
{
    const auto until = deadline();
    auto& to = line();
    // The work may outlive this call, and owns all that it uses: the lock, too.
    struct Write
    {
        std::shared_ptr<WriterLock> turn;
        std::optional<ItemPattern> old;
        KeychainItem item;
        SecretBytes text;
        std::string collection;
    };
    auto write = std::make_shared<Write>();
    if (old)
        write->old = *old;
    write->item = {item.identity, item.accessible, item.accessControl, {}};
    write->text = secretItem::sealedText(item);
    write->collection = newItems();
    write->turn = turnToWrite(until);
    return to.ask<KeychainStatus>(until, true,
                                  [write = std::move(write)](SecretItems& items)
                                  {
                                      return secretOperations::store(
                                          items, write->collection,
                                          write->old ? &*write->old : nullptr, write->item,
                                          write->text);
                                  });
}

SecretServiceItemStore::SecretServiceItemStore(Configuration configuration)
    : state_(std::make_unique<State>(std::move(configuration)))
{}

SecretServiceItemStore::~SecretServiceItemStore()
{
    shutdown();
}

KeychainStatus SecretServiceItemStore::add(const KeychainItem& item)
{
    return state_->status([&] { return state_->store(nullptr, item); });
}

KeychainStatus SecretServiceItemStore::replace(const ItemPattern& old, const KeychainItem& item)
{
    return state_->status([&] { return state_->store(&old, item); });
}

KeychainAnswer SecretServiceItemStore::copyMatching(const ItemPattern& pattern, ItemContent content,
                                                    std::size_t limit)
{
    KeychainAnswer answer;
    answer.status = state_->status(
        [&]
        {
            answer = state_->line().ask<KeychainAnswer>(
                state_->deadline(), false, [pattern, content, limit](SecretItems& items)
                { return secretOperations::copyMatching(items, pattern, content, limit); });
            return answer.status;
        });
    return answer;
}

KeychainStatus SecretServiceItemStore::deleteMatching(const ItemPattern& pattern)
{
    return state_->status(
        [&]
        {
            const auto until = state_->deadline();
            auto& line = state_->line();
            return line.ask<KeychainStatus>(
                until, true, [pattern, turn = state_->turnToWrite(until)](SecretItems& items)
                { return secretOperations::deleteMatching(items, pattern); });
        });
}

KeychainStatus SecretServiceItemStore::update(
    const KeychainIdentity& identity,
    const std::function<std::optional<SecretBytes>(const SecretBytes*)>& change)
{
    const ItemPattern pattern{.service = identity.service,
                              .account = identity.account,
                              .accessGroups = {identity.accessGroup},
                              .synchronizable = identity.synchronizable,
                              .accessible = {},
                              .accessControl = {}};
    return state_->status(
        [&]
        {
            const auto until = state_->deadline();
            auto& line = state_->line();
            auto turn = state_->turnToWrite(until);
            auto stored =
                line.ask<KeychainAnswer>(until, false,
                                         [pattern](SecretItems& items)
                                         {
                                             return secretOperations::copyMatching(
                                                 items, pattern, ItemContent::attributesAndData, 1);
                                         });
            const bool exists = !stored.items.empty();
            auto changed = change(exists ? &stored.items.front().data : nullptr);
            if (isForked())
                throw secretServiceFailures::forked();
            if (!changed || (changed->empty() && !exists))
                return KeychainStatus::success;

            const auto item = std::make_shared<KeychainItem>(
                exists ? std::move(stored.items.front()) : KeychainItem{.identity = identity});
            item->data = std::move(*changed);
            return line.ask<KeychainStatus>(
                until, true,
                [pattern, item, collection = state_->newItems(),
                 owned = std::move(turn)](SecretItems& items)
                {
                    return item->data.empty()
                               ? secretOperations::deleteMatching(items, pattern)
                               : secretOperations::store(items, collection, &pattern, *item,
                                                         secretItem::sealedText(*item));
                });
        });
}

void SecretServiceItemStore::State::unlock(std::stop_token ended, std::chrono::milliseconds limit)
{
    // A line of its own: the user may think for minutes, and reads go on meanwhile.
    Line line(SecretLibrary::load(configuration.library), configuration.busAddress);
    std::stop_source either;
    const auto stop = [&either] { either.request_stop(); };
    const std::stop_callback byCaller(std::move(ended), stop);
    const std::stop_callback byShutdown(ending.get_token(), stop);
    try
    {
        line.thread.run(
            std::chrono::steady_clock::now() + limit,
            [&connection = line.connection, alias = configuration.collection](const GWork& at)
            {
                connection.open(at);
                CollectionUnlocking(connection, at).run(alias);
            },
            either.get_token());
    }
    catch (const SecretServiceFailure& failure)
    {
        if (failure.kind() != SecretServiceFailure::Kind::cancelled)
            throw;
        throw ending.stop_requested() ? secretServiceFailures::shutDown()
                                      : secretServiceFailures::notUnlocked();
    }
}

KeychainStatus SecretServiceItemStore::unlock(std::stop_token ended,
                                              std::chrono::milliseconds limit)
{
    return state_->status(
        [&]
        {
            /// What the shutdown waits for.
            struct Unlocking
            {
                explicit Unlocking(State& all) : state(all)
                {
                    const std::lock_guard lock(state.mutex);
                    if (state.ending.stop_requested())
                        throw secretServiceFailures::shutDown();
                    ++state.unlockings;
                }
                ~Unlocking()
                {
                    const std::lock_guard lock(state.mutex);
                    --state.unlockings;
                    state.unlockingEnded.notify_all();
                }
                State& state;
            } const unlocking(*state_);
            state_->unlock(std::move(ended), limit);
            return KeychainStatus::success;
        });
}

void SecretServiceItemStore::shutdown()
{
    if (isForked())
        return;
    Line* line = nullptr;
    {
        const std::lock_guard lock(state_->mutex);
        state_->ending.request_stop();
        line = state_->existingLine.get();
    }
    if (line)
        line->thread.shutdown();
    std::unique_lock lock(state_->mutex);
    state_->unlockingEnded.wait(lock, [this] { return state_->unlockings == 0; });
}

}  // namespace platform
