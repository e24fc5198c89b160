#include "NetTasks/AsyncURLSessionTask.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Concurrency/Continuation.hpp"

#include <atomic>

namespace nettasks
{
namespace
{

using Continuation = platform::Continuation<DataAndResponse>;

platform::Outcome<DataAndResponse> outcomeOf(platform::URLCompletion completion)
{
    if (completion.error)
        return completion.error;
    if (!completion.body || !completion.response)
        platform::fatal("A transfer ended with neither an error nor an answer");
    return DataAndResponse{std::move(*completion.body), std::move(*completion.response)};
}

}  // namespace

/// The caller that waits for the transfer. It is written before the transfer starts and read after
/// it has ended; that order alone keeps the two threads apart.
struct AsyncURLSessionTask::Caller
{
    std::shared_ptr<Continuation> continuation;
    std::atomic<bool> resumed = false;
};

AsyncURLSessionTask::AsyncURLSessionTask(std::shared_ptr<platform::URLSession> urlSession,
                                         const MakeTask& make, std::function<void()> whenEnded)
    : urlSession_(std::move(urlSession)), caller_(std::make_shared<Caller>())
{
    // Weak: when nobody waits any more, there is nobody to tell.
    std::weak_ptr<Caller> waiting = caller_;
    urlSessionTask_ =
        make(*urlSession_,
             [waiting, whenEnded = std::move(whenEnded)](platform::URLCompletion completion)
             {
                 const auto caller = waiting.lock();
                 if (!caller)
                     return;
                 if (whenEnded)
                     whenEnded();
                 if (caller->continuation)
                     caller->continuation->resume(outcomeOf(std::move(completion)));
             });
}

platform::Awaitable<DataAndResponse> AsyncURLSessionTask::resume()
{
    if (caller_->resumed.exchange(true))
        platform::fatal("AsyncURLSessionTask::resume() was called twice");
    // The caller's wait keeps all three alive, whoever lets go of this object meanwhile.
    auto start = [caller = caller_, task = urlSessionTask_,
                  session = urlSession_](std::shared_ptr<Continuation> continuation)
    {
        continuation->onCancel([task] { task->cancel(); });
        caller->continuation = std::move(continuation);
        task->resume();
    };
    return platform::suspendCaller<DataAndResponse>(std::move(start));
}

std::int64_t AsyncURLSessionTask::countOfBytesExpectedToReceive() const
{
    return urlSessionTask_->countOfBytesExpectedToReceive();
}
std::int64_t AsyncURLSessionTask::countOfBytesReceived() const
{
    return urlSessionTask_->countOfBytesReceived();
}
std::int64_t AsyncURLSessionTask::countOfBytesExpectedToSend() const
{
    return urlSessionTask_->countOfBytesExpectedToSend();
}
std::int64_t AsyncURLSessionTask::countOfBytesSent() const
{
    return urlSessionTask_->countOfBytesSent();
}

}  // namespace nettasks
