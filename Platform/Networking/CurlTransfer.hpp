#pragma once

#include "Platform/Networking/CurlLoop.hpp"
#include "Platform/Networking/CurlOptions.hpp"
#include "Platform/Networking/CurlTask.hpp"
#include "Platform/Networking/FileBody.hpp"
#include "Platform/Networking/HeaderLines.hpp"
#include "Platform/Networking/URLError.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <curl/curl.h>

namespace platform
{

/// One easy handle of libcurl and what belongs to the transfer that it carries; used again for the
/// next one, because options that stay the same are then set once.
///
/// Lives on the engine's thread alone.
class CurlTransfer
{
public:
    CurlTransfer(const CurlOptions& options, CurlLoop& loop);
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    CURL* handle() const noexcept { return easy_.get(); }

    /// The transfer that carries this handle.
    static CurlTransfer& of(CURL* handle);

    /// Makes the handle ready for the task's request. Throws `URLError` when it must not be sent.
    void prepare(std::shared_ptr<CurlTask> task);

    /// What libcurl's result means for the task.
    URLCompletion outcome(CURLcode result);

    /// Wipes what belonged to the task and hands the task back.
    std::shared_ptr<CurlTask> release();

    /// Where the engine keeps a transfer that runs.
    std::size_t slot = 0;

private:
    void setMethod(const URLRequest& request);
    void setBody(const URLRequest& request);
    void setFile();
    void setAddress(const URL& url);
    void setTimeLimit(std::chrono::milliseconds ofRequest);

    void takeHeaderLine(std::string_view line);
    void endHead();
    void takeBody(std::span<const std::byte> bytes);
    void makeRoom(std::size_t bytes);
    void aboutToSend() const;
    void noteSent() const;

    std::exception_ptr failure(CURLcode result) const;
    URLResponse response();

    static std::size_t headerCallback(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t bodyCallback(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t readCallback(char* room, std::size_t, std::size_t size, void* self);
    static int seekCallback(void* self, curl_off_t offset, int origin);
    static int sendCallback(void* self, char*, char*, int, int);
    static int progressCallback(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    /// Runs a callback's work; what it throws ends the transfer and becomes its error.
    template <typename Work>
    bool guarded(Work work) noexcept;

    template <typename Value>
    Value info(CURLINFO which) const;

    const CurlOptions& options_;
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy_;
    std::shared_ptr<CurlTask> task_;
    std::optional<FileBody> file_;
    HeaderLines headers_;

    // What the handle is set to.
    std::string address_;
    std::string method_;
    bool hasBody_ = false;
    std::optional<bool> loopback_;
    std::chrono::milliseconds timeLimit_{0};

    SecretBytes body_;
    std::size_t room_ = 0;
    std::int64_t expectedLength_ = -1;
    HTTPFields fields_;
    bool atStatusLine_ = true;
    std::size_t headBytes_ = 0;
    std::size_t headLines_ = 0;
    bool headComplete_ = false;
    std::exception_ptr thrown_;
    char message_[CURL_ERROR_SIZE] = {};
};

}  // namespace platform
