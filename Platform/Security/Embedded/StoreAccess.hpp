#pragma once

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Embedded/OpenStore.hpp"

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace platform
{

/// The way of one process's threads to a store: one operation at a time, on a connection that is
/// opened at the first one and anew whenever it can no longer be trusted. Here every `StoreFault`
/// ends, as a diagnostic and a status. Any thread may call; operations must not call back.
class StoreAccess
{
public:
    explicit StoreAccess(EmbeddedItemStore::Configuration configuration);
    ~StoreAccess();
    StoreAccess(const StoreAccess&) = delete;
    StoreAccess& operator=(const StoreAccess&) = delete;

    /// Runs `KeychainStatus operation(OpenStore&)`, which changes nothing.
    template <class Operation>
    KeychainStatus read(const Operation& operation)
    {
        return guarded([&](const Patience& patience) { return operation(store(patience)); });
    }

    /// The same for one that changes items: its log must be one that the next start will find.
    template <class Operation>
    KeychainStatus change(const Operation& operation)
    {
        return guarded([&](const Patience& patience)
                       { return operation(storeToChange(patience)); });
    }

    KeychainStatus rewrap(const std::optional<SecretString>& current,
                          const std::optional<SecretString>& replacement);

    /// As `EmbeddedItemStore::close`.
    void close() noexcept;

private:
    class Running;
    /// Refers to what it was made of, so that making it takes no memory.
    using Attempt = std::function<KeychainStatus(const Patience&)>;

    template <class Operation>
    KeychainStatus guarded(const Operation& operation)
    {
        return carryOut(Attempt(std::cref(operation)));
    }

    /// Alone among this store's threads, and tells why it did not succeed.
    KeychainStatus carryOut(const Attempt& attempt);
    KeychainStatus carryOutAlone(const Attempt& attempt);
    KeychainStatus withoutStrangers(const Attempt& attempt, const Patience& patience);

    OpenStore& store(const Patience& patience);
    OpenStore& storeToChange(const Patience& patience);
    void open(const Patience& patience);
    bool isInForkedChild() const noexcept;

    const EmbeddedItemStore::Configuration configuration_;
    const std::shared_ptr<FileLayer> files_;
    /// The process that the connection belongs to; 0 where there is none.
    std::atomic<pid_t> opener_ = 0;
    std::timed_mutex mutex_;
    std::atomic<std::thread::id> holder_;
    std::unique_ptr<OpenStore> open_;
};

}  // namespace platform
