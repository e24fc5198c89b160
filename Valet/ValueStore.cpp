#include "Valet/ValueStore.hpp"

#include "Valet/KeychainStore.hpp"

#include <functional>
#include <string>
#include <utility>

namespace valet
{

ValueStore::ValueStore(std::unique_ptr<KeychainStore> store) : store_(std::move(store)) {}

ValueStore::~ValueStore() = default;

const Identifier& ValueStore::identifier() const noexcept
{
    return service().identifier();
}

const Service& ValueStore::service() const noexcept
{
    return store_->service();
}

bool ValueStore::canAccessKeychain() noexcept
{
    return store_->enter()->canAccessKeychain();
}

void ValueStore::setObject(platform::SecretBytes value, std::string_view forKey)
{
    store_->enter()->setObject(std::move(value), forKey);
}

void ValueStore::setObject(std::span<const std::byte> value, std::string_view forKey)
{
    store_->enter()->setObject(platform::SecretBytes(value), forKey);
}

void ValueStore::setString(const platform::SecretString& value, std::string_view forKey)
{
    store_->enter()->setString(value.view(), forKey);
}

void ValueStore::setString(std::string_view value, std::string_view forKey)
{
    store_->enter()->setString(value, forKey);
}

bool ValueStore::containsObject(std::string_view forKey) const
{
    return store_->enter()->containsObject(forKey);
}

void ValueStore::removeObject(std::string_view forKey)
{
    store_->enter()->removeObject(forKey);
}

void ValueStore::removeAllObjects()
{
    store_->enter()->removeAllObjects();
}

bool ValueStore::operator==(const ValueStore& other) const noexcept
{
    return store_->name() == other.store_->name();
}

std::size_t ValueStore::hash() const noexcept
{
    return std::hash<std::string>{}(store_->name());
}

}  // namespace valet
