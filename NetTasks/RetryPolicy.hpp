#pragma once

#include "Platform/Networking/URLResponse.hpp"
#include "Platform/Security/SecretBytes.hpp"

namespace nettasks
{

/// When an answer is not good enough, and how long to wait before the next attempt. Errors of the
/// transport are never retried. Shared by the attempts of all its tasks, on any thread.
class RetryPolicy
{
public:
    virtual ~RetryPolicy() = default;

    /// Seconds. The first wait is half of it, the second equals it, and each later one doubles. A
    /// delay below zero, one that is not a number, and a wait of 2^64 nanoseconds or more stop the
    /// process when the wait would begin.
    virtual double baseDelay() const = 0;

    /// How many attempts may follow the first one.
    virtual int maximumRetries() const = 0;

    /// Asked about every answer, whatever its status, while retries are left.
    virtual bool shouldRetry(const platform::SecretBytes& data,
                             const platform::URLResponse& response) const = 0;
};

}  // namespace nettasks
