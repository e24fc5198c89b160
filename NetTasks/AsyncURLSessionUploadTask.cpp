#include "NetTasks/AsyncURLSessionUploadTask.hpp"

#include <unistd.h>

#include <utility>

namespace nettasks
{
namespace
{

/// Takes away links and files alone: `unlink` refuses a folder, which `std::filesystem::remove`
/// would take when it is empty.
void removeEntry(const std::filesystem::path& entry)
{
    unlink(entry.c_str());
}

std::function<void()> removalOf(const std::filesystem::path& entry, bool wanted)
{
    if (!wanted)
        return {};
    return [entry] { removeEntry(entry); };
}

}  // namespace

AsyncURLSessionUploadTask::AsyncURLSessionUploadTask(
    platform::URLRequest request, std::filesystem::path fileURL, bool deleteFileOnCompletion,
    std::shared_ptr<platform::URLSession> urlSession)
    : AsyncURLSessionTask(
          std::move(urlSession),
          [&](platform::URLSession& session, platform::URLSession::Completion completion)
          { return session.uploadTask(std::move(request), fileURL, std::move(completion)); },
          removalOf(fileURL, deleteFileOnCompletion))
{}

}  // namespace nettasks
