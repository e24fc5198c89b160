#pragma once

#include "NetTasks/AsyncURLSessionDataTask.hpp"

#include <memory>

namespace nettasks
{

/// An awaitable transfer of `request`, not started yet.
inline std::shared_ptr<AsyncURLSessionTaskProtocol> asyncDataTask(
    std::shared_ptr<platform::URLSession> session, platform::URLRequest request)
{
    return std::make_shared<AsyncURLSessionDataTask>(std::move(request), std::move(session));
}

/// Sends `request` and checks the response, see `check`. A caller that is cancelled already gets
/// `platform::CancellationError` and nothing is sent.
template <class Error>
platform::Awaitable<void> checkResponse(std::shared_ptr<platform::URLSession> session,
                                        platform::URLRequest request)
{
    co_await platform::checkCancellation();
    auto task = asyncDataTask(std::move(session), std::move(request));
    co_await checkResponse<Error>(std::move(task));
}

/// Sends `request`, checks the response and decodes the body. Cancellation as above.
template <class Value, class Error>
platform::Awaitable<Value> decodeData(std::shared_ptr<platform::URLSession> session,
                                      platform::URLRequest request)
{
    co_await platform::checkCancellation();
    auto task = asyncDataTask(std::move(session), std::move(request));
    auto value = co_await decodeData<Value, Error>(std::move(task));
    co_return value;
}

}  // namespace nettasks
