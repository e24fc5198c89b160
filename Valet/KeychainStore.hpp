#pragma once

#include "Valet/ItemOperations.hpp"

#include <mutex>
#include <string>
#include <utility>

namespace valet
{

/// What every store is made of: a service, a keychain and a lock. An operation begins with
/// `enter()`, which holds the lock as long as what it returns.
class KeychainStore
{
public:
    class Entry
    {
    public:
        explicit Entry(const KeychainStore& store) : lock_(free(store)), items_(store.items_) {}

        const ItemOperations* operator->() const noexcept { return &items_; }

    private:
        static std::mutex& free(const KeychainStore& store)
        {
            SecItem::requireOutsideKeychain();
            return store.lock_;
        }

        std::lock_guard<std::mutex> lock_;
        const ItemOperations& items_;
    };

    KeychainStore(Service service, std::shared_ptr<platform::Keychain> keychain)
        : service_(std::move(service)),
          name_(service_.name()),
          items_(service_, std::move(keychain))
    {}

    [[nodiscard]] Entry enter() const { return Entry(*this); }

    const Service& service() const noexcept { return service_; }
    const platform::KeychainQuery& baseQuery() const noexcept { return items_.baseQuery(); }
    const std::string& name() const noexcept { return name_; }

private:
    const Service service_;
    const std::string name_;
    const ItemOperations items_;
    mutable std::mutex lock_;
};

}  // namespace valet
