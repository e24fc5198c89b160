#pragma once

#include "Platform/Networking/URLSession.hpp"

#include <atomic>
#include <memory>
#include <utility>

namespace tessera
{

/// Passes transfers on until it is ended: what starts later ends with `CancellationError`, and
/// nothing is sent. A call that is on its way to the network when its account is released hears of
/// the cancellation only a few steps later; this is what stops it.
class EndableURLSession final : public platform::URLSession
{
public:
    explicit EndableURLSession(std::shared_ptr<platform::URLSession> next) : next_(std::move(next))
    {}

    void end() noexcept { ended_ = true; }

    std::shared_ptr<platform::URLSessionTask> dataTask(platform::URLRequest request,
                                                       Completion completion) override
    {
        return passedOn(next_->dataTask(std::move(request), std::move(completion)));
    }

    std::shared_ptr<platform::URLSessionTask> uploadTask(platform::URLRequest request,
                                                         std::filesystem::path file,
                                                         Completion completion) override
    {
        return passedOn(
            next_->uploadTask(std::move(request), std::move(file), std::move(completion)));
    }

private:
    std::shared_ptr<platform::URLSessionTask> passedOn(
        std::shared_ptr<platform::URLSessionTask> task) const
    {
        if (ended_)
            task->cancel();
        return task;
    }

    const std::shared_ptr<platform::URLSession> next_;
    std::atomic<bool> ended_ = false;
};

}  // namespace tessera
