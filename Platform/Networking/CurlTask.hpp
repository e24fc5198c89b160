#pragma once

#include "Platform/Networking/URLSession.hpp"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

namespace platform
{

class CurlEngine;
class CurlTransfer;

/// A task of `CurlURLSession`. The public functions belong to any thread; what is named "engine's"
/// belongs to the thread that runs the transfers, from `resume()` on.
class CurlTask final : public URLSessionTask, public std::enable_shared_from_this<CurlTask>
{
public:
    CurlTask(std::shared_ptr<CurlEngine> engine, URLRequest request,
             URLSession::Completion completion);

    /// An upload of `file`.
    CurlTask(std::shared_ptr<CurlEngine> engine, URLRequest request, std::filesystem::path file,
             URLSession::Completion completion);

    void resume() override;
    void cancel() override;
    Progress& progress() override { return progress_; }

    std::int64_t countOfBytesExpectedToReceive() const override { return read(expectedToReceive_); }
    std::int64_t countOfBytesReceived() const override { return read(received_); }
    std::int64_t countOfBytesExpectedToSend() const override { return read(expectedToSend_); }
    std::int64_t countOfBytesSent() const override { return read(sent_); }

    bool isCancelled() const noexcept { return cancelled_; }

    // The engine's.
    const URLRequest& request() const { return request_; }
    const std::optional<std::filesystem::path>& file() const { return file_; }
    CurlTransfer* transfer = nullptr;

    void noteToSend(std::int64_t bytes);
    void noteSent(std::int64_t bytes);
    void noteReceived(std::int64_t expected, std::int64_t bytes);

    /// Takes the address out of a request that is over.
    URL takeURL() { return std::move(request_.url); }

    /// Calls the completion and lets go of it. The one place that does.
    void complete(URLCompletion completion);

private:
    using Count = std::atomic<std::int64_t>;

    // Each count stands alone and orders nothing else.
    static std::int64_t read(const Count& count) { return count.load(std::memory_order_relaxed); }
    static void write(Count& count, std::int64_t value)
    {
        count.store(value, std::memory_order_relaxed);
    }
    void updateProgress();

    const std::shared_ptr<CurlEngine> engine_;
    URLRequest request_;
    const std::optional<std::filesystem::path> file_;
    URLSession::Completion completion_;
    std::atomic<bool> resumed_ = false;
    std::atomic<bool> cancelled_ = false;
    Count expectedToSend_ = -1;
    Count sent_ = 0;
    Count expectedToReceive_ = -1;
    Count received_ = 0;
    Progress progress_;
};

}  // namespace platform
