#include "NetTasks/AsyncURLSessionDataTask.hpp"

#include <utility>

namespace nettasks
{

AsyncURLSessionDataTask::AsyncURLSessionDataTask(platform::URLRequest request,
                                                 std::shared_ptr<platform::URLSession> urlSession)
    : AsyncURLSessionTask(std::move(urlSession), [&](platform::URLSession& session,
                                                     platform::URLSession::Completion completion)
                          { return session.dataTask(std::move(request), std::move(completion)); })
{}

}  // namespace nettasks
