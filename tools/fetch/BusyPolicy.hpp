#pragma once

#include "NetTasks/RetryPolicy.hpp"

#include <functional>
#include <utility>

namespace fetch
{

/// Tries again what a busy server, or a gateway before it, did not take: the status codes that say
/// "later", and no other.
///
/// Used by one task. It counts the attempts, so that a person can be told of each wait.
class BusyPolicy final : public nettasks::RetryPolicy
{
public:
    /// The status, the seconds that are waited now, and the number of the attempt that follows.
    using Told = std::function<void(int status, double wait, int attempt)>;

    BusyPolicy(double baseDelay, int retries, Told told)
        : baseDelay_(baseDelay), retries_(retries), told_(std::move(told)), nextWait_(baseDelay / 2)
    {}

    double baseDelay() const override { return baseDelay_; }
    int maximumRetries() const override { return retries_; }

    bool shouldRetry(const platform::SecretBytes&,
                     const platform::URLResponse& response) const override
    {
        const int status = platform::httpStatusCode(response);
        const bool later = status == 429 || (status >= 502 && status <= 504);
        if (later)
        {
            ++attempts_;
            told_(status, nextWait_, attempts_);
            nextWait_ *= 2;
        }
        return later;
    }

    /// How many were begun.
    int attempts() const { return attempts_; }

private:
    const double baseDelay_;
    const int retries_;
    const Told told_;
    mutable int attempts_ = 1;
    mutable double nextWait_;
};

}  // namespace fetch
