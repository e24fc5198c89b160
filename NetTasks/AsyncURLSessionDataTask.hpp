#pragma once

#include "NetTasks/AsyncURLSessionTask.hpp"

namespace nettasks
{

/// An awaitable transfer whose body, if it has one, stands in the request.
class AsyncURLSessionDataTask final : public AsyncURLSessionTask
{
public:
    AsyncURLSessionDataTask(platform::URLRequest request,
                            std::shared_ptr<platform::URLSession> urlSession);
};

}  // namespace nettasks
