#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace commandline
{

/// Something that happens once, as a descriptor for `poll`: readable from then on. Any thread may
/// tell of it.
class Event
{
public:
    Event() : descriptor_(::eventfd(0, EFD_CLOEXEC))
    {
        if (descriptor_ < 0)
            throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    ~Event() { ::close(descriptor_); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void happen() const
    {
        const std::uint64_t one = 1;
        // It cannot fail: the counter is far from its end.
        [[maybe_unused]] const auto written = ::write(descriptor_, &one, sizeof one);
    }
    int descriptor() const noexcept { return descriptor_; }

private:
    const int descriptor_;
};

}  // namespace commandline
