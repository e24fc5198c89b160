#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <span>
#include <string_view>
#include <utility>

namespace platform
{

/// Bytes that must not outlive their use: a token, a code, a password, an answer that holds one.
///
/// The memory lies outside core dumps and is wiped when it is released, when it is replaced and
/// when it moves because it grew. There is no way to print the value: a caller that needs it says
/// so with `view()`, and must not keep the view longer than the value.
///
/// Use one value from one thread at a time, as with `std::vector`.
class SecretBytes
{
public:
    SecretBytes() noexcept = default;
    explicit SecretBytes(std::span<const std::byte> bytes) { append(bytes); }
    SecretBytes(const SecretBytes& other) : SecretBytes(other.view()) {}
    SecretBytes(SecretBytes&& other) noexcept { swap(other); }
    SecretBytes& operator=(SecretBytes other) noexcept
    {
        swap(other);
        return *this;
    }
    ~SecretBytes() { clear(); }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::span<const std::byte> view() const noexcept { return {data_, size_}; }

    /// The same bytes to be written in place; valid until the value next grows.
    std::span<std::byte> mutableView() noexcept { return {data_, size_}; }

    void append(std::span<const std::byte> bytes);

    /// Gives room for `capacity` bytes in all. Memory beyond 64 KiB becomes resident only when it
    /// is written, so a generous reservation costs address space and nothing else.
    void reserve(std::size_t capacity);

    /// Makes the value `size` bytes long. Bytes that are cut off are wiped; new ones are zero.
    void resize(std::size_t size);

    /// Wipes and releases the memory.
    void clear() noexcept;

    void swap(SecretBytes& other) noexcept
    {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

    /// Compares in a time that depends on the lengths alone.
    friend bool operator==(const SecretBytes& left, const SecretBytes& right) noexcept;

private:
    std::byte* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

/// `SecretBytes` that are text in UTF-8. Same rules.
class SecretString
{
public:
    SecretString() noexcept = default;
    explicit SecretString(std::string_view text) { append(text); }
    explicit SecretString(SecretBytes bytes) noexcept : bytes_(std::move(bytes)) {}

    std::string_view view() const noexcept
    {
        return {reinterpret_cast<const char*>(bytes_.view().data()), bytes_.size()};
    }
    std::span<const std::byte> bytes() const noexcept { return bytes_.view(); }
    std::size_t size() const noexcept { return bytes_.size(); }
    bool empty() const noexcept { return bytes_.empty(); }

    void reserve(std::size_t capacity) { bytes_.reserve(capacity); }
    void append(std::string_view text) { bytes_.append(std::as_bytes(std::span(text))); }
    void clear() noexcept { bytes_.clear(); }

    bool operator==(const SecretString&) const noexcept = default;
    friend std::size_t hash_value(const SecretString& text) noexcept
    {
        return std::hash<std::string_view>{}(text.view());
    }

private:
    SecretBytes bytes_;
};

}  // namespace platform
