#include "Platform/Networking/URLSession.hpp"

namespace platform
{

URLSessionTask::~URLSessionTask() = default;

URLSession::~URLSession() = default;

}  // namespace platform
