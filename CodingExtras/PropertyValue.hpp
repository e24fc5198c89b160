#pragma once

#include <any>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace codingextras
{

/// The signed integers, each width of them. Characters are not: `char` is signed on one machine and
/// not on the next, and 'a' is meant as a letter.
template <class T>
concept SignedInteger = std::same_as<T, signed char> || std::same_as<T, short> ||
                        std::same_as<T, int> || std::same_as<T, long> || std::same_as<T, long long>;

namespace detail
{

/// The integer in `value` if it is a signed one. A Boolean is none.
std::optional<std::int64_t> integerIn(const std::any& value) noexcept;

/// The same value, with a text that somebody else owns copied into a `std::string`.
std::any owned(std::any value);

template <class T>
inline constexpr bool isVariant = false;
template <class... Ts>
inline constexpr bool isVariant<std::variant<Ts...>> = true;

template <class T>
std::optional<T> read(const std::any& value);

/// The first alternative that the value is.
template <class Variant, std::size_t index = 0>
std::optional<Variant> readVariant(const std::any& value)
{
    if constexpr (index < std::variant_size_v<Variant>)
    {
        if (auto found = read<std::variant_alternative_t<index, Variant>>(value))
            return Variant(std::in_place_index<index>, std::move(*found));
        return readVariant<Variant, index + 1>(value);
    }
    return std::nullopt;
}

/// The value as a `T`: an integer when it fits, a variant by its first alternative that does, and
/// everything else when it is of this very type.
template <class T>
std::optional<T> read(const std::any& value)
{
    static_assert(!std::same_as<T, std::string_view> && !std::is_pointer_v<T>,
                  "texts are held as std::string");
    if constexpr (std::same_as<T, std::any>)
        return std::optional<T>(std::in_place, value);
    else if constexpr (isVariant<T>)
        return readVariant<T>(value);
    else if constexpr (SignedInteger<T>)
    {
        const auto integer = integerIn(value);
        return integer && std::in_range<T>(*integer) ? std::optional<T>(static_cast<T>(*integer))
                                                     : std::nullopt;
    }
    else
    {
        const T* const held = std::any_cast<T>(&value);
        return held ? std::optional<T>(*held) : std::nullopt;
    }
}

template <class T>
std::any write(const T& value)
{
    if constexpr (isVariant<T>)
        return std::visit([](const auto& held) { return write(held); }, value);
    else
        return owned(value);
}

}  // namespace detail
}  // namespace codingextras
