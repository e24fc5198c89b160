// Free-form properties that were read are written so that they read back the same, and agree with
// each member read alone; those of a host are written as an object that has each name once.

#include "CodingExtras/CustomPropertiesContainer.hpp"
#include "CodingExtras/DecodableValue.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "Platform/Coding/Text.hpp"
#include "tests/fuzz/Require.hpp"

#include <cstdint>
#include <set>

using namespace codingextras;
using namespace platform;

namespace
{

using Simple = std::map<std::string, std::variant<std::string, std::int64_t, bool>>;

template <class T>
std::optional<T> decoded(std::string_view json)
{
    try
    {
        return JSONDecoder().decode<T>(json);
    }
    catch (const DecodingError&)
    {
        return std::nullopt;
    }
}

/// Writes the container and reads it back.
CustomPropertiesContainer returned(const CustomPropertiesContainer& container)
{
    const std::string json = JSONEncoder().encode(container);
    require(isValidUTF8(json));
    const auto back = decoded<CustomPropertiesContainer>(json);
    require(back.has_value());
    return *back;
}

void tryObject(std::string_view json)
{
    const auto container = decoded<CustomPropertiesContainer>(json);
    if (!container)
        return;
    const auto simple = container->as<Simple>();
    require(simple.size() == container->properties().size());
    const auto back = returned(*container);
    require(back.as<Simple>() == simple);
    require(JSONEncoder().encode(back) == JSONEncoder().encode(*container));
    require(CustomPropertiesContainer(simple).as<Simple>() == simple);
}

void tryValue(std::string_view json)
{
    const auto value = decoded<DecodableValue>(json);
    if (!value)
        return;
    require(!value->intValue || !value->stringValue);
    const auto member = decoded<CustomPropertiesContainer>("{\"k\":" + std::string(json) + "}");
    // One level more may be one too many.
    require(member || !(value->intValue || value->stringValue));
    if (!member)
        return;
    require(member->value<std::int64_t>("k") == value->intValue);
    require(member->value<std::string>("k") == value->stringValue);
}

/// Lines in turn as keys and as values, some of them numbers.
void tryHost(std::string_view text)
{
    CustomPropertiesContainer::Properties properties;
    std::set<std::string> names;
    while (!text.empty())
    {
        const std::string key(text.substr(0, text.find('\n')));
        text.remove_prefix(std::min(key.size() + 1, text.size()));
        const std::string_view value = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(value.size() + 1, text.size()));
        if (value.size() % 3 == 1)
            properties.emplace(key, static_cast<signed char>(value[0]));
        else
            properties.emplace(key, value);
        names.insert(repairedUTF8(key));
    }
    const CustomPropertiesContainer container(properties);
    const CustomPropertiesContainer back = returned(container);
    require(back.properties().size() == names.size());
    for (const auto& [key, held] : container.properties())
    {
        if (!isValidUTF8(key))
            continue;
        if (const auto value = container.value<std::string>(key))
            require(back.value<std::string>(key) == repairedUTF8(*value));
        else
            require(back.value<int>(key) == container.value<int>(key));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    tryObject(input);
    tryValue(input);
    tryHost(input);
    return 0;
}
