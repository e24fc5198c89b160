#pragma once

#include <unistd.h>

#include <utility>

namespace platform
{

/// Owns a file descriptor; a negative one is none.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }

    int number() const noexcept { return number_; }
    bool isOpen() const noexcept { return number_ >= 0; }
    int release() noexcept { return std::exchange(number_, -1); }

    /// False, with `errno`, where what was written may not have arrived.
    bool close() noexcept { return number_ < 0 || ::close(release()) == 0; }

private:
    int number_;
};

}  // namespace platform
