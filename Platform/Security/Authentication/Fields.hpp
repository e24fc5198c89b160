#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

namespace platform
{

/// Puts the fields of a stored form one after another; numbers with the lowest byte first.
class FieldWriter
{
public:
    template <std::unsigned_integral Number>
    FieldWriter& number(Number value)
    {
        std::array<std::byte, sizeof(Number)> bytes;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::byte>(value >> (8 * i));
        return raw(bytes);
    }
    FieldWriter& raw(std::span<const std::byte> bytes)
    {
        bytes_.append(bytes);
        return *this;
    }
    /// With its length in front, so that two texts can be told apart from their concatenation.
    FieldWriter& text(std::string_view text)
    {
        return number(std::uint64_t{text.size()}).raw(std::as_bytes(std::span(text)));
    }
    /// Room for `size` bytes that are filled in afterwards; valid until the next field.
    std::span<std::byte> room(std::size_t size)
    {
        bytes_.resize(bytes_.size() + size);
        return bytes_.mutableView().last(size);
    }

    const SecretBytes& bytes() const noexcept { return bytes_; }
    SecretBytes take() noexcept { return std::move(bytes_); }
    void reserve(std::size_t size) { bytes_.reserve(size); }

private:
    SecretBytes bytes_;
};

/// Takes them apart again. Where the bytes end too early, fields are zero and `complete` is false.
class FieldReader
{
public:
    explicit FieldReader(std::span<const std::byte> bytes) : rest_(bytes) {}

    template <std::unsigned_integral Number>
    Number number()
    {
        Number value = 0;
        const auto bytes = raw(sizeof(Number));
        for (std::size_t i = 0; i < bytes.size(); ++i)
            value |= static_cast<Number>(std::to_integer<Number>(bytes[i]) << (8 * i));
        return value;
    }
    std::span<const std::byte> raw(std::size_t size)
    {
        complete_ = complete_ && size <= rest_.size();
        if (!complete_)
            return {};
        const auto field = rest_.first(size);
        rest_ = rest_.subspan(size);
        return field;
    }
    template <std::size_t size>
    void fill(std::array<std::byte, size>& field)
    {
        if (const auto bytes = raw(size); !bytes.empty())
            std::memcpy(field.data(), bytes.data(), size);
    }

    std::span<const std::byte> rest() const noexcept { return rest_; }
    bool complete() const noexcept { return complete_; }

private:
    std::span<const std::byte> rest_;
    bool complete_ = true;
};

inline const unsigned char* readable(std::span<const std::byte> bytes) noexcept
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}
inline unsigned char* writable(std::span<std::byte> bytes) noexcept
{
    return reinterpret_cast<unsigned char*>(bytes.data());
}

}  // namespace platform
