#pragma once

#include "NetTasks/AsyncURLSessionTaskProtocol.hpp"
#include "NetTasks/RetryPolicy.hpp"
#include "Platform/Concurrency/Clock.hpp"

#include <functional>
#include <memory>

namespace nettasks
{

/// A transfer that is tried again while its policy asks for it: each attempt is a fresh task of the
/// provider, and between two attempts it waits as `RetryPolicy::baseDelay` says.
///
/// The caller gets the last answer; those before are dropped. A transfer's error leaves at once.
/// Cancelling the awaiting caller ends an attempt and a wait alike with
/// `platform::CancellationError`, and no further attempt begins. Letting go of it while its caller
/// waits changes nothing for the caller.
class ResilientAsyncURLSessionTask final : public AsyncURLSessionTaskProtocol
{
public:
    using TaskProvider = std::function<std::shared_ptr<AsyncURLSessionTaskProtocol>()>;

    /// Waits by the clock of `platform::services()` unless another one is given.
    ResilientAsyncURLSessionTask(TaskProvider taskProvider,
                                 std::shared_ptr<const RetryPolicy> retryPolicy,
                                 std::shared_ptr<platform::Clock> clock = nullptr);

    /// One for all attempts. It mirrors the running attempt, so that it drops back when one begins.
    platform::Progress& progress() override;

    /// May be called again when it has ended, and goes on with the retries that were left then.
    platform::Awaitable<DataAndResponse> resume() override;

    /// How many retries were made so far.
    int retries() const;

private:
    struct Attempts;

    static platform::Awaitable<DataAndResponse> attempt(std::shared_ptr<Attempts> attempts);
    static platform::Awaitable<DataAndResponse> run(std::shared_ptr<Attempts> attempts);

    std::shared_ptr<Attempts> attempts_;
};

}  // namespace nettasks
