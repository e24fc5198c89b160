#include "Platform/Networking/CurlTask.hpp"

#include "Platform/Networking/CurlEngine.hpp"

#include <algorithm>
#include <utility>

namespace platform
{

CurlTask::CurlTask(std::shared_ptr<CurlEngine> engine, URLRequest request,
                   URLSession::Completion completion)
    : engine_(std::move(engine)), request_(std::move(request)), completion_(std::move(completion))
{
    noteToSend(request_.body ? static_cast<std::int64_t>(request_.body->size()) : 0);
}

CurlTask::CurlTask(std::shared_ptr<CurlEngine> engine, URLRequest request,
                   std::filesystem::path file, URLSession::Completion completion)
    : engine_(std::move(engine)),
      request_(std::move(request)),
      file_(std::move(file)),
      completion_(std::move(completion))
{
    progress_.update(-1, 0);
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

void CurlTask::noteToSend(std::int64_t bytes)
{
    write(expectedToSend_, bytes);
    updateProgress();
}

void CurlTask::noteSent(std::int64_t bytes)
{
    if (read(sent_) == bytes)
        return;
    write(sent_, bytes);
    updateProgress();
}

void CurlTask::noteReceived(std::int64_t expected, std::int64_t bytes)
{
    if (read(received_) == bytes && read(expectedToReceive_) == expected)
        return;
    write(expectedToReceive_, expected);
    write(received_, bytes);
    updateProgress();
}

void CurlTask::updateProgress()
{
    const std::int64_t received = read(received_);
    const std::int64_t expected = read(expectedToReceive_);
    const bool lengthUnknown = expected < 0 && received > 0;
    const std::int64_t total = read(expectedToSend_) + std::max<std::int64_t>(expected, 0);
    progress_.update(lengthUnknown ? -1 : total, read(sent_) + received);
}

void CurlTask::complete(URLCompletion completion)
{
    const auto call = std::exchange(completion_, nullptr);
    call(std::move(completion));
}

}  // namespace platform
