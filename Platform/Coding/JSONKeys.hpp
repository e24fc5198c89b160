#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>

#include <boost/describe/enumerators.hpp>
#include <boost/describe/members.hpp>
#include <boost/mp11/algorithm.hpp>

namespace platform
{

/// The name that a field of a record, or a case of an enumeration, has in JSON, where it differs
/// from the name in code. Stated beside the type, in its namespace:
///
///     constexpr auto jsonKeys(const AccountInfo*)
///     {
///         using platform::JSONKey;
///         return std::array{JSONKey{"issuedAt", "iat"}, JSONKey{"audience", "aud"}};
///     }
///
/// A name that is not one of the type's does not compile. What is not stated has its own name,
/// without the trailing underscore that keeps it off a word of the language.
struct JSONKey
{
    std::string_view name;
    std::string_view key;
};

namespace detail
{

template <class T>
constexpr auto statedKeys()
{
    if constexpr (requires { jsonKeys(static_cast<const T*>(nullptr)); })
        return jsonKeys(static_cast<const T*>(nullptr));
    else
        return std::array<JSONKey, 0>{};
}

/// The described fields of a record, those of its bases included; none for other types.
template <class T>
using DescribedFields = boost::describe::describe_members<T, boost::describe::mod_public |
                                                                 boost::describe::mod_inherited>;

/// The names in code of a record's fields or of an enumeration's cases.
template <class T>
constexpr bool isNamed(std::string_view name)
{
    bool found = false;
    const auto compare = [&](auto described)
    { found = found || std::string_view(described.name) == name; };
    if constexpr (std::is_enum_v<T>)
        boost::mp11::mp_for_each<boost::describe::describe_enumerators<T>>(compare);
    else
        boost::mp11::mp_for_each<DescribedFields<T>>(compare);
    return found;
}

template <class T>
constexpr bool allStatedKeysAreNamed()
{
    for (const JSONKey& stated : statedKeys<T>())
    {
        if (!isNamed<T>(stated.name))
            return false;
    }
    return true;
}

/// The name in JSON of the field or case `name` of `T`.
template <class T>
constexpr std::string_view jsonKey(std::string_view name)
{
    static_assert(allStatedKeysAreNamed<T>(), "jsonKeys names what the type does not have");
    for (const JSONKey& stated : statedKeys<T>())
    {
        if (stated.name == name)
            return stated.key;
    }
    if (name.ends_with('_'))
        name.remove_suffix(1);
    return name;
}

}  // namespace detail

/// The text of an enumeration's case, as `jsonKeys` states it or as the case is named; empty for a
/// value that is none of the cases.
template <class E>
    requires boost::describe::has_describe_enumerators<E>::value
constexpr std::string_view rawValue(E value)
{
    std::string_view text;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>(
        [&](auto described)
        {
            if (described.value == value)
                text = detail::jsonKey<E>(described.name);
        });
    return text;
}

/// The case with this text, which must match letter for letter.
template <class E>
    requires boost::describe::has_describe_enumerators<E>::value
constexpr std::optional<E> fromRawValue(std::string_view text)
{
    std::optional<E> value;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>(
        [&](auto described)
        {
            if (!value && detail::jsonKey<E>(described.name) == text)
                value = described.value;
        });
    return value;
}

}  // namespace platform
