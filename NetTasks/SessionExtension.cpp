#include "NetTasks/SessionExtension.hpp"

#include "NetTasks/AsyncURLSessionDataTask.hpp"
#include "NetTasks/AsyncURLSessionUploadTask.hpp"
#include "NetTasks/ResilientAsyncURLSessionTask.hpp"

namespace nettasks
{
namespace
{

/// One task of the provider, or with a policy as many as it asks for.
std::shared_ptr<AsyncURLSessionTaskProtocol> taskOf(
    ResilientAsyncURLSessionTask::TaskProvider provider, std::shared_ptr<const RetryPolicy> policy)
{
    if (!policy)
        return provider();
    return std::make_shared<ResilientAsyncURLSessionTask>(std::move(provider), std::move(policy));
}

}  // namespace

std::shared_ptr<AsyncURLSessionTaskProtocol> asyncDataTask(
    std::shared_ptr<platform::URLSession> session, platform::URLRequest request,
    std::shared_ptr<const RetryPolicy> retryPolicy)
{
    // The usual way goes without the copy of a request that only further attempts need.
    if (!retryPolicy)
        return std::make_shared<AsyncURLSessionDataTask>(std::move(request), std::move(session));
    return taskOf([session = std::move(session), request = std::move(request)]
                  { return std::make_shared<AsyncURLSessionDataTask>(request, session); },
                  std::move(retryPolicy));
}

std::shared_ptr<AsyncURLSessionTaskProtocol> asyncUploadTask(
    std::shared_ptr<platform::URLSession> session, platform::URLRequest request,
    std::filesystem::path fileURL, bool deleteFileOnCompletion,
    std::shared_ptr<const RetryPolicy> retryPolicy)
{
    return taskOf(
        [session = std::move(session), request = std::move(request), fileURL = std::move(fileURL),
         deleteFileOnCompletion]
        {
            return std::make_shared<AsyncURLSessionUploadTask>(request, fileURL,
                                                               deleteFileOnCompletion, session);
        },
        std::move(retryPolicy));
}

}  // namespace nettasks
