#pragma once

#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Networking/CurlURLSession.hpp"

#include <cstddef>
#include <memory>
#include <string>

/// A host of the library: coroutines on a run loop that await one request after the other, each of
/// them for itself, on one session.
class AwaitedClient
{
public:
    AwaitedClient(const std::string& address, std::size_t inFlight);

    /// Sends `count` requests and takes their answers.
    void run(std::size_t count);

private:
    const std::size_t inFlight_;
    std::shared_ptr<platform::CurlURLSession> session_;
    std::shared_ptr<platform::RunLoop> loop_ = std::make_shared<platform::RunLoop>();
    platform::URLRequest request_;
};
