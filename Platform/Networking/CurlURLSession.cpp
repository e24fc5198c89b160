#include "Platform/Networking/CurlURLSession.hpp"

#include "Platform/Networking/CurlEngine.hpp"
#include "Platform/Networking/CurlTask.hpp"

#include <new>
#include <utility>

#include <curl/curl.h>

namespace platform
{

CurlURLSession::CurlURLSession() : CurlURLSession(Configuration()) {}

CurlURLSession::CurlURLSession(Configuration configuration)
    : engine_(std::make_shared<CurlEngine>(std::move(configuration)))
{}

CurlURLSession::~CurlURLSession()
{
    shutdown();
}

std::shared_ptr<URLSessionTask> CurlURLSession::dataTask(URLRequest request, Completion completion)
{
    return std::make_shared<CurlTask>(engine_, std::move(request), std::move(completion));
}

std::shared_ptr<URLSessionTask> CurlURLSession::uploadTask(URLRequest request,
                                                           std::filesystem::path file,
                                                           Completion completion)
{
    return std::make_shared<CurlTask>(engine_, std::move(request), std::move(file),
                                      std::move(completion));
}

void CurlURLSession::shutdown()
{
    engine_->stop();
}

}  // namespace platform
