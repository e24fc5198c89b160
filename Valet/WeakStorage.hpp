#pragma once

#include "Valet/KeychainStore.hpp"

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace valet
{

/// The live stores of one class, by keychain and service name: whoever asks for a store that
/// somebody holds gets that one. An entry goes when its store goes. Any thread may call.
template <class Store>
class WeakStorage
{
public:
    /// Built on first use, and never torn down: stores in the host's static objects may outlive it.
    static WeakStorage& shared()
    {
        static auto& instance = *new WeakStorage;
        return instance;
    }

    /// The store of the service in the keychain; null means the system's.
    std::shared_ptr<Store> store(Service service, std::shared_ptr<platform::Keychain> keychain)
    {
        keychain = SecItem::keychainOrSystems(std::move(keychain));
        const Key key(keychain.get(), service.name());
        if (auto live = find(key))
            return live;
        // Made outside the lock, which is never held around a call into a keychain. If another
        // thread was quicker, its store is the one.
        auto made = std::make_unique<KeychainStore>(std::move(service), std::move(keychain));
        const std::shared_ptr<Store> store(new Store(std::move(made)), Drop{key});
        return insert(key, store);
    }

    std::size_t size() const
    {
        const std::lock_guard lock(lock_);
        return identifierToValetMap_.size();
    }

private:
    WeakStorage() = default;

    /// A live store holds its keychain, so that the address stands for no other one meanwhile.
    using Key = std::pair<const platform::Keychain*, std::string>;

    /// Ends a store that nobody holds, and its entry.
    struct Drop
    {
        Key key;

        void operator()(const Store* store) const
        {
            delete store;
            shared().dropIfExpired(key);
        }
    };

    std::shared_ptr<Store> find(const Key& key) const
    {
        const std::lock_guard lock(lock_);
        const auto entry = identifierToValetMap_.find(key);
        return entry == identifierToValetMap_.end() ? nullptr : entry->second.lock();
    }

    std::shared_ptr<Store> insert(const Key& key, const std::shared_ptr<Store>& store)
    {
        const std::lock_guard lock(lock_);
        auto& entry = identifierToValetMap_[key];
        if (auto live = entry.lock())
            return live;
        entry = store;
        return store;
    }

    void dropIfExpired(const Key& key)
    {
        const std::lock_guard lock(lock_);
        const auto entry = identifierToValetMap_.find(key);
        if (entry != identifierToValetMap_.end() && entry->second.expired())
            identifierToValetMap_.erase(entry);
    }

    mutable std::mutex lock_;
    std::map<Key, std::weak_ptr<Store>> identifierToValetMap_;
};

}  // namespace valet
