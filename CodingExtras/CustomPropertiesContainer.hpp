#pragma once

#include "CodingExtras/PropertyValue.hpp"
#include "Platform/Coding/JSONReader.hpp"
#include "Platform/Coding/JSONWriter.hpp"

#include <any>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace codingextras
{

/// Free-form properties that travel as a JSON object: a dictionary of values of any type.
///
/// JSON carries texts, signed integers of every width, and Booleans. Everything else may be held
/// and is left out in silence, key and all: unsigned integers, characters, fractions, dates, null,
/// lists, dictionaries. Read from JSON, the values are `std::string`, `std::int64_t` and `bool`; a
/// number never becomes a text nor a Boolean a number, and members of other kinds are left out.
///
/// Texts may be given as `std::string`, `std::string_view` or `const char*`; they are copied, and
/// held as `std::string`. In JSON they are repaired where they are not UTF-8; of keys that become
/// the same by that, one is written. A plain value without equality, for `std::any` has none:
/// compare what `as` gives.
class CustomPropertiesContainer
{
public:
    using Properties = std::map<std::string, std::any>;

    CustomPropertiesContainer() = default;
    explicit CustomPropertiesContainer(Properties properties);
    CustomPropertiesContainer(std::initializer_list<Properties::value_type> properties);

    /// From any other map with keys of text, the first counts of keys that are equal. The values
    /// are of any type; of a `std::variant`, it is the alternative that is taken.
    template <class Map>
        requires std::constructible_from<std::string, typename Map::key_type> &&
                 requires { typename Map::mapped_type; } && (!std::same_as<Map, Properties>)
    explicit CustomPropertiesContainer(const Map& map)
    {
        for (const auto& [key, value] : map)
            properties_.emplace(std::string(key), detail::write(value));
    }

    const Properties& properties() const noexcept { return properties_; }

    /// The value under the key, or null when there is none. It belongs to this container.
    const std::any* operator[](const std::string& key) const;

    /// The value under the key as a `T`; nothing when there is none, or when it is not a `T`. An
    /// integer is given in every signed type that can hold it, everything else in its own alone.
    template <class T>
    std::optional<T> value(const std::string& key) const
    {
        const std::any* const found = (*this)[key];
        return found ? detail::read<T>(*found) : std::nullopt;
    }

    /// The properties in a map of another type, such as
    /// `std::unordered_map<std::string, std::variant<std::string, std::int64_t, bool>>`. Those that
    /// its values cannot express, by the rules of `value`, are left out.
    template <class Map>
    Map as() const
    {
        Map map;
        for (const auto& [key, value] : properties_)
        {
            if (auto found = detail::read<typename Map::mapped_type>(value))
                map.emplace(key, std::move(*found));
        }
        return map;
    }

private:
    Properties properties_;
};

}  // namespace codingextras

/// Written in the order of the keys. Throws what the reader and the writer say: reading what is no
/// object is `typeMismatch`, of null `valueNotFound`.
template <>
struct platform::JSONCoding<codingextras::CustomPropertiesContainer>
{
    static codingextras::CustomPropertiesContainer decode(const JSONReader& json);
    static void encode(const codingextras::CustomPropertiesContainer& container, JSONWriter& json);
};
