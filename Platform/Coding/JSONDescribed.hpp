#pragma once

#include <optional>
#include <type_traits>

#include "Platform/Coding/JSONCoding.hpp"
#include "Platform/Coding/JSONKeys.hpp"

namespace platform
{
namespace detail
{

template <class T>
struct OptionalValue : std::false_type
{};
template <class T>
struct OptionalValue<std::optional<T>> : std::true_type
{};

}  // namespace detail

/// A record with a `BOOST_DESCRIBE_STRUCT` line is an object: its fields are read and written in
/// the order of that line, under their own names or those that `jsonKeys` states. A field of
/// optional type may be absent or null and is left out when it holds nothing; every other field is
/// required. Members of the object that the record does not have are ignored.
template <class T>
    requires boost::describe::has_describe_members<T>::value
struct JSONCoding<T>
{
    static T decode(const JSONReader& json)
    {
        T record{};
        boost::mp11::mp_for_each<detail::DescribedFields<T>>(
            [&](auto field)
            {
                constexpr std::string_view key = detail::jsonKey<T>(decltype(field)::name);
                decodeField(json, key, record.*decltype(field)::pointer);
            });
        return record;
    }

    static void encode(const T& record, JSONWriter& json)
    {
        json.beginObject();
        boost::mp11::mp_for_each<detail::DescribedFields<T>>(
            [&](auto field)
            {
                constexpr std::string_view key = detail::jsonKey<T>(decltype(field)::name);
                json.member(key, record.*decltype(field)::pointer);
            });
        json.endObject();
    }

private:
    template <class Field>
    static void decodeField(const JSONReader& json, std::string_view key, Field& field)
    {
        if constexpr (detail::OptionalValue<Field>::value)
            field = json.decodeIfPresent<typename Field::value_type>(key);
        else
            field = json.decode<Field>(key);
    }
};

/// A described enumeration is a text: the name of its case, or what `jsonKeys` states. Any other
/// text is `dataCorrupted`.
template <class E>
    requires boost::describe::has_describe_enumerators<E>::value
struct JSONCoding<E>
{
    static E decode(const JSONReader& json)
    {
        if (const auto value = fromRawValue<E>(json.text()))
            return *value;
        throw json.dataCorrupted();
    }
    static void encode(E value, JSONWriter& json) { json.text(rawValue(value)); }
};

}  // namespace platform
