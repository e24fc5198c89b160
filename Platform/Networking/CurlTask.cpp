#include "Platform/Networking/CurlTask.hpp"

#include "Platform/Networking/CurlEngine.hpp"

#include <utility>

namespace platform
{

CurlTask::CurlTask(std::shared_ptr<CurlEngine> engine, URLRequest request,
                   URLSession::Completion completion)
    : engine_(std::move(engine)),
      request_(std::move(request)),
      completion_(std::move(completion)),
      expectedToSend_(request_.body ? static_cast<std::int64_t>(request_.body->size()) : 0)
{
    progress_.update(expectedToSend_, 0);
}

void CurlTask::resume()
{
    if (!resumed_.exchange(true))
        engine_->start(shared_from_this());
}

void CurlTask::cancel()
{
    // Not resumed yet: the start will look at the flag.
    if (!cancelled_.exchange(true) && resumed_)
        engine_->cancel(shared_from_this());
}

void CurlTask::noteSent(std::int64_t bytes)
{
    if (sent_ == bytes)
        return;
    sent_ = bytes;
    updateProgress();
}

void CurlTask::noteReceived(std::int64_t expected, std::int64_t bytes)
{
    expectedToReceive_ = expected;
    received_ = bytes;
    updateProgress();
}

void CurlTask::updateProgress()
{
    const std::int64_t completed = sent_ + received_;
    const bool lengthUnknown = expectedToReceive_ < 0 && received_ > 0;
    const std::int64_t incoming = expectedToReceive_ < 0 ? 0 : expectedToReceive_.load();
    progress_.update(lengthUnknown ? -1 : expectedToSend_ + incoming, completed);
}

void CurlTask::complete(URLCompletion completion)
{
    const auto call = std::exchange(completion_, nullptr);
    call(std::move(completion));
}

}  // namespace platform
