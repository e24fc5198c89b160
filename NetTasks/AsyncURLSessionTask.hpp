#pragma once

#include "NetTasks/AsyncURLSessionTaskProtocol.hpp"
#include "Platform/Networking/URLSession.hpp"

#include <cstdint>
#include <functional>
#include <memory>

namespace nettasks
{

/// What data and upload tasks are: one transfer of a session, which a coroutine awaits. It is made
/// at once and starts with `resume()`.
///
/// Letting go of it while its caller waits changes nothing for the caller.
class AsyncURLSessionTask : public AsyncURLSessionTaskProtocol
{
public:
    platform::Progress& progress() override { return urlSessionTask_->progress(); }

    /// To be called once; a second call is a programming error and stops the process. Cancelling
    /// the awaiting caller acts as `cancel()`.
    platform::Awaitable<DataAndResponse> resume() override;

    /// Ends the transfer; the caller of `resume()` gets `platform::CancellationError`.
    void cancel() { urlSessionTask_->cancel(); }

    std::int64_t countOfBytesExpectedToReceive() const;
    std::int64_t countOfBytesReceived() const;
    std::int64_t countOfBytesExpectedToSend() const;
    std::int64_t countOfBytesSent() const;

protected:
    using MakeTask = std::function<std::shared_ptr<platform::URLSessionTask>(
        platform::URLSession&, platform::URLSession::Completion)>;

    /// `whenEnded` runs when the transfer has ended in whatever way, before the caller hears of it.
    AsyncURLSessionTask(std::shared_ptr<platform::URLSession> urlSession, const MakeTask& make,
                        std::function<void()> whenEnded = {});

private:
    struct Caller;

    std::shared_ptr<platform::URLSession> urlSession_;
    std::shared_ptr<Caller> caller_;
    std::shared_ptr<platform::URLSessionTask> urlSessionTask_;
};

}  // namespace nettasks
