#pragma once

#include "NetTasks/AsyncURLSessionTaskProtocol.hpp"
#include "NetTasks/RetryPolicy.hpp"
#include "Platform/Networking/URLSession.hpp"

#include <filesystem>
#include <memory>
#include <utility>

namespace nettasks
{

/// An awaitable transfer of `request`, not started yet. With a policy it is tried again as that one
/// says, see `ResilientAsyncURLSessionTask`.
std::shared_ptr<AsyncURLSessionTaskProtocol> asyncDataTask(
    std::shared_ptr<platform::URLSession> session, platform::URLRequest request,
    std::shared_ptr<const RetryPolicy> retryPolicy = nullptr);

/// The same with the contents of a file as the body, see `AsyncURLSessionUploadTask`. Each attempt
/// removes the file that it was told to delete: a second one then fails, because the file is gone.
std::shared_ptr<AsyncURLSessionTaskProtocol> asyncUploadTask(
    std::shared_ptr<platform::URLSession> session, platform::URLRequest request,
    std::filesystem::path fileURL, bool deleteFileOnCompletion,
    std::shared_ptr<const RetryPolicy> retryPolicy = nullptr);

/// Sends `request` and checks the response, see `check`. A caller that is cancelled already gets
/// `platform::CancellationError` and nothing is sent.
template <class Error>
platform::Awaitable<void> checkResponse(std::shared_ptr<platform::URLSession> session,
                                        platform::URLRequest request,
                                        std::shared_ptr<const RetryPolicy> retryPolicy = nullptr)
{
    co_await platform::checkCancellation();
    auto task = asyncDataTask(std::move(session), std::move(request), std::move(retryPolicy));
    co_await checkResponse<Error>(std::move(task));
}

/// Sends `request`, checks the response and decodes the body. Cancellation as above.
template <class Value, class Error>
platform::Awaitable<Value> decodeData(std::shared_ptr<platform::URLSession> session,
                                      platform::URLRequest request,
                                      std::shared_ptr<const RetryPolicy> retryPolicy = nullptr)
{
    co_await platform::checkCancellation();
    auto task = asyncDataTask(std::move(session), std::move(request), std::move(retryPolicy));
    auto value = co_await decodeData<Value, Error>(std::move(task));
    co_return value;
}

}  // namespace nettasks
