#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"

#include "Platform/Security/SecretService/CollectionUnlocking.hpp"
#include "Platform/Security/SecretService/GLibThread.hpp"
#include "Platform/Security/SecretService/SecretConnection.hpp"
#include "Platform/Security/SecretService/SecretOperations.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"
#include "Platform/Security/SecretService/SecretServiceNames.hpp"
#include "Platform/Security/SecretService/WriterLock.hpp"

#include <sys/stat.h>

#include <cstdlib>
#include <utility>

namespace platform
{
namespace
{

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

    Deadline deadline() const { return std::chrono::steady_clock::now() + configuration.limit; }

    /// The library, the connection and the thread appear with the first use.
    Line& line()
    {
        const std::lock_guard lock(mutex);
        if (isShutDown)
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

    /// Runs `operation`, and turns a failure into a status after it was reported.
    template <class Operation>
    KeychainStatus status(Operation operation) const
    {
        try
        {
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

    const Configuration configuration;
    std::mutex mutex;
    bool isShutDown = false;
    std::unique_ptr<Line> existingLine;
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

KeychainStatus SecretServiceItemStore::unlock(std::stop_token ended,
                                              std::chrono::milliseconds limit)
{
    return state_->status(
        [&]
        {
            // A line of its own: the user may think for minutes, and reads go on meanwhile.
            Line line(SecretLibrary::load(state_->configuration.library),
                      state_->configuration.busAddress);
            const auto alias = state_->configuration.collection;
            try
            {
                line.thread.run(
                    std::chrono::steady_clock::now() + limit,
                    [&connection = line.connection, alias](const GWork& at)
                    {
                        connection.open(at);
                        CollectionUnlocking(connection, at).run(alias);
                    },
                    std::move(ended));
            }
            catch (const SecretServiceFailure& failure)
            {
                if (failure.kind() == SecretServiceFailure::Kind::cancelled)
                    throw secretServiceFailures::notUnlocked();
                throw;
            }
            return KeychainStatus::success;
        });
}

void SecretServiceItemStore::shutdown()
{
    Line* line = nullptr;
    {
        const std::lock_guard lock(state_->mutex);
        state_->isShutDown = true;
        line = state_->existingLine.get();
    }
    if (line)
        line->thread.shutdown();
}

}  // namespace platform
