#pragma once

#include "NetTasks/AsyncURLSessionTask.hpp"

#include <filesystem>

namespace nettasks
{

/// An awaitable upload: the body is what a file holds, see `platform::URLSession::uploadTask`.
///
/// With `deleteFileOnCompletion`, the entry at `fileURL` is removed as soon as the transfer has
/// ended, also in an error or by cancellation, and before the caller hears of it. A link is removed
/// itself and its target is left alone; a folder is never removed. Nobody is told when it cannot be
/// removed, and a transfer that was never started removes nothing.
class AsyncURLSessionUploadTask final : public AsyncURLSessionTask
{
public:
    AsyncURLSessionUploadTask(platform::URLRequest request, std::filesystem::path fileURL,
                              bool deleteFileOnCompletion,
                              std::shared_ptr<platform::URLSession> urlSession);
};

}  // namespace nettasks
