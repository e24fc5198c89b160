#include "Platform/Security/Keychain/KeychainQuery.hpp"

#include <algorithm>

namespace platform
{

KeychainQuery::KeychainQuery(std::initializer_list<Entry> entries)
{
    for (const auto& [attribute, value] : entries)
        set(attribute, value);
}

KeychainQuery& KeychainQuery::set(KeychainAttribute attribute, KeychainValue value)
{
    const auto place = std::ranges::find(entries_, attribute, &Entry::first);
    if (place == entries_.end())
        entries_.emplace_back(attribute, std::move(value));
    else
        place->second = std::move(value);
    return *this;
}

KeychainQuery KeychainQuery::with(KeychainAttribute attribute, KeychainValue value) const
{
    auto extended = *this;
    extended.set(attribute, std::move(value));
    return extended;
}

const KeychainValue* KeychainQuery::find(KeychainAttribute attribute) const
{
    const auto place = std::ranges::find(entries_, attribute, &Entry::first);
    return place == entries_.end() ? nullptr : &place->second;
}

}  // namespace platform
