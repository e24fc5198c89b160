#pragma once

#include "Platform/Basics/Wipe.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <type_traits>

namespace platform
{

/// Scratch memory for the length of one call: a short array that needs no heap while it suffices,
/// and that is wiped when it is left or moves, since what passes through it may be private.
///
/// Not copyable; for one thread. Throws `std::bad_alloc`.
template <class T, std::size_t InlineCount>
class WipedBuffer
{
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_default_constructible_v<T>);

public:
    // Not defaulted: value-initialisation would then fill the whole array with zeros.
    WipedBuffer() noexcept {}
    WipedBuffer(const WipedBuffer&) = delete;
    WipedBuffer& operator=(const WipedBuffer&) = delete;
    ~WipedBuffer() { wipe(); }

    std::size_t size() const noexcept { return size_; }
    std::size_t capacity() const noexcept { return capacity_; }
    T* data() noexcept { return data_; }
    const T* data() const noexcept { return data_; }
    T& operator[](std::size_t index) noexcept { return data_[index]; }

    void push_back(const T& value)
    {
        if (size_ == capacity_)
            grow(2 * capacity_);
        data_[size_++] = value;
    }

    void append(std::span<const T> values)
    {
        if (values.size() > capacity_ - size_)
            grow(std::max(2 * capacity_, size_ + values.size()));
        std::copy(values.begin(), values.end(), data_ + size_);
        size_ += values.size();
    }

    /// Makes room for `capacity` elements in all; up to that many, `data()` does not move.
    void reserve(std::size_t capacity)
    {
        if (capacity > capacity_)
            grow(capacity);
    }

private:
    void wipe() noexcept
    {
        if (size_ > 0)
            platform::wipe(data_, size_ * sizeof(T));
    }

    void grow(std::size_t capacity)
    {
        std::unique_ptr<T[]> larger(new T[capacity]);
        std::copy(data_, data_ + size_, larger.get());
        wipe();
        heap_ = std::move(larger);
        data_ = heap_.get();
        capacity_ = capacity;
    }

    T inline_[InlineCount];
    std::unique_ptr<T[]> heap_;
    T* data_ = inline_;
    std::size_t size_ = 0;
    std::size_t capacity_ = InlineCount;
};

}  // namespace platform
