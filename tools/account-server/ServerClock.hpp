#pragma once

#include <chrono>

namespace accountserver
{

/// The time that codes, sessions and tokens go by: the system's clock plus an offset, which the
/// control interface moves. Seconds since 1970-01-01 00:00:00 UTC. Used on the server's thread.
class ServerClock
{
public:
    double now() const
    {
        const auto real = std::chrono::system_clock::now().time_since_epoch();
        return std::chrono::duration<double>(real).count() + offset_;
    }
    double offset() const { return offset_; }
    void setOffset(double seconds) { offset_ = seconds; }

private:
    double offset_ = 0;
};

}  // namespace accountserver
