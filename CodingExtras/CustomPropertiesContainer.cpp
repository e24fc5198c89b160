#include "CodingExtras/CustomPropertiesContainer.hpp"

#include "Platform/Coding/JSONCoding.hpp"
#include "Platform/Coding/Text.hpp"

#include <set>

namespace codingextras
{

CustomPropertiesContainer::CustomPropertiesContainer(Properties properties)
    : properties_(std::move(properties))
{
    for (auto& [key, value] : properties_)
        value = detail::owned(std::move(value));
}

CustomPropertiesContainer::CustomPropertiesContainer(
    std::initializer_list<Properties::value_type> properties)
    : CustomPropertiesContainer(Properties(properties))
{}

const std::any* CustomPropertiesContainer::operator[](const std::string& key) const
{
    const auto found = properties_.find(key);
    return found == properties_.end() ? nullptr : &found->second;
}

}  // namespace codingextras

namespace platform
{

using codingextras::CustomPropertiesContainer;

namespace
{

/// Whether the key is not UTF-8 and, repaired, is the name of another property. One object must not
/// have a name twice: readers differ in which of the two they take.
bool isNameTaken(const CustomPropertiesContainer& container, std::string_view key,
                 std::set<std::string>& repaired)
{
    if (isValidUTF8(key))
        return false;
    const std::string name = repairedUTF8(key);
    return container[name] || !repaired.insert(name).second;
}

}  // namespace

CustomPropertiesContainer JSONCoding<CustomPropertiesContainer>::decode(const JSONReader& json)
{
    CustomPropertiesContainer::Properties properties;
    for (const auto& [key, value] : json.members())
    {
        if (const auto text = value.tryText())
            properties.emplace(key, std::string(*text));
        else if (const auto integer = value.tryInteger())
            properties.emplace(key, *integer);
        else if (const auto boolean = value.tryBoolean())
            properties.emplace(key, *boolean);
    }
    return CustomPropertiesContainer(std::move(properties));
}

void JSONCoding<CustomPropertiesContainer>::encode(const CustomPropertiesContainer& container,
                                                   JSONWriter& json)
{
    json.beginObject();
    std::set<std::string> repaired;
    for (const auto& [key, value] : container.properties())
    {
        if (isNameTaken(container, key, repaired))
            continue;
        if (const auto* text = std::any_cast<std::string>(&value))
            json.member(key, *text);
        else if (const auto integer = codingextras::detail::integerIn(value))
            json.member(key, *integer);
        else if (const auto* boolean = std::any_cast<bool>(&value))
            json.member(key, *boolean);
    }
    json.endObject();
}

}  // namespace platform
