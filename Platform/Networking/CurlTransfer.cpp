#include "Platform/Networking/CurlTransfer.hpp"

#include "Platform/Networking/CurlFailure.hpp"
#include "Platform/Networking/HeaderName.hpp"

#include <algorithm>
#include <array>
#include <new>
#include <type_traits>
#include <utility>

namespace platform
{
namespace
{

// An answer's head has a kilobyte or two. Interim answers count, so they cannot go on for ever.
constexpr std::size_t headLimit = std::size_t{256} * 1024;
constexpr std::size_t headLineLimit = 1000;

// Beyond this size a body is worth looking at while it is sent.
constexpr std::size_t watchedBody = std::size_t{64} * 1024;

// A file goes faster in larger pieces than libcurl's usual 64 KiB; beyond this size nothing is
// gained.
constexpr long fileBuffer = 256L * 1024;

template <std::size_t size>
bool isOneOf(const std::array<std::string_view, size>& words, std::string_view word)
{
    return std::ranges::find(words, word) != words.end();
}

/// Whether a server may get the request twice without doing more than once (RFC 9110, 9.2.2).
bool isIdempotent(std::string_view method)
{
    constexpr std::array<std::string_view, 7> methods{"GET",    "HEAD",    "QUERY", "PUT",
                                                      "DELETE", "OPTIONS", "TRACE"};
    return isOneOf(methods, method);
}

/// Whether a request without a body says so with a length of 0 (RFC 9110, section 8.6).
bool statesEmptyBody(std::string_view method)
{
    constexpr std::array<std::string_view, 3> methods{"POST", "PUT", "PATCH"};
    return isOneOf(methods, method);
}

}  // namespace

CurlTransfer::CurlTransfer(const CurlOptions& options, CurlLoop& loop)
    : options_(options), easy_(curl_easy_init(), &curl_easy_cleanup)
{
    if (!easy_)
        throw std::bad_alloc();
    options_.apply(handle());
    loop.adopt(handle());
    setOption(handle(), CURLOPT_PRIVATE, this);
    setOption(handle(), CURLOPT_ERRORBUFFER, message_);
    setOption(handle(), CURLOPT_HEADERFUNCTION, &headerCallback);
    setOption(handle(), CURLOPT_HEADERDATA, this);
    setOption(handle(), CURLOPT_WRITEFUNCTION, &bodyCallback);
    setOption(handle(), CURLOPT_WRITEDATA, this);
    setOption(handle(), CURLOPT_READFUNCTION, &readCallback);
    setOption(handle(), CURLOPT_READDATA, this);
    setOption(handle(), CURLOPT_SEEKFUNCTION, &seekCallback);
    setOption(handle(), CURLOPT_SEEKDATA, this);
    setOption(handle(), CURLOPT_PREREQFUNCTION, &sendCallback);
    setOption(handle(), CURLOPT_PREREQDATA, this);
    setOption(handle(), CURLOPT_XFERINFOFUNCTION, &progressCallback);
    setOption(handle(), CURLOPT_XFERINFODATA, this);
}

CurlTransfer& CurlTransfer::of(CURL* handle)
{
    void* self = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &self);
    return *static_cast<CurlTransfer*>(self);
}

template <typename Value>
Value CurlTransfer::info(CURLINFO which) const
{
    Value value{};
    curl_easy_getinfo(handle(), which, &value);
    return value;
}

void CurlTransfer::prepare(std::shared_ptr<CurlTask> task)
{
    const URLRequest& request = task->request();
    if (request.url.scheme() != "https" &&
        !(request.url.scheme() == "http" && request.url.isLoopback()))
        throw URLError(URLError::Code::insecureURL);
    if (!isToken(request.method))
        throw URLError(URLError::Code::invalidMethod);

    setOption(handle(), CURLOPT_HTTPHEADER, headers_.build(request, request.body || task->file()));
    file_.reset();
    if (task->file())
    {
        file_.emplace(*task->file());
        task->noteToSend(file_->size());
    }
    setAddress(request.url);
    setMethod(request);
    setTimeLimit(request.timeout);

    room_ = 0;
    expectedLength_ = -1;
    headBytes_ = headLines_ = 0;
    headComplete_ = false;
    atStatusLine_ = true;
    message_[0] = '\0';
    task_ = std::move(task);
}

void CurlTransfer::setAddress(const URL& url)
{
    if (address_ == url.string())
        return;
    const bool loopback = url.isLoopback();
    if (loopback_ != loopback)
        options_.applyRoute(handle(), loopback);
    loopback_ = loopback;
    setOption(handle(), CURLOPT_URL, url.string().c_str());
    address_ = url.string();
}

void CurlTransfer::setMethod(const URLRequest& request)
{
    const bool hasBody = request.body || file_ || statesEmptyBody(request.method);
    if (method_ != request.method || hasBody_ != hasBody)
    {
        const bool isHead = request.method == "HEAD";
        setOption(handle(), isHead ? CURLOPT_NOBODY : hasBody ? CURLOPT_POST : CURLOPT_HTTPGET, 1L);
        setOption(handle(), CURLOPT_CUSTOMREQUEST, request.method.c_str());
        method_ = request.method;
        hasBody_ = hasBody;
    }
    if (file_)
        setFile();
    else if (hasBody)
        setBody(request);
}

void CurlTransfer::setFile()
{
    setOption(handle(), CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    setOption(handle(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(file_->size()));
    setOption(handle(), CURLOPT_UPLOAD_BUFFERSIZE, fileBuffer);
    setOption(handle(), CURLOPT_NOPROGRESS, 0L);
}

void CurlTransfer::setBody(const URLRequest& request)
{
    const std::span<const std::byte> body =
        request.body ? request.body->view() : std::span<const std::byte>();
    setOption(handle(), CURLOPT_POSTFIELDS,
              body.empty() ? "" : reinterpret_cast<const char*>(body.data()));
    setOption(handle(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    if (body.size() > watchedBody)
        setOption(handle(), CURLOPT_NOPROGRESS, 0L);
}

void CurlTransfer::setTimeLimit(std::chrono::milliseconds ofRequest)
{
    const auto limit = options_.timeLimit(ofRequest);
    if (timeLimit_ == limit)
        return;
    setOption(handle(), CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
    timeLimit_ = limit;
}

template <typename Work>
bool CurlTransfer::guarded(Work work) noexcept
{
    try
    {
        work();
        return true;
    }
    catch (...)
    {
        thrown_ = std::current_exception();
        return false;
    }
}

std::size_t CurlTransfer::headerCallback(char* data, std::size_t, std::size_t size, void* self)
{
    auto& transfer = *static_cast<CurlTransfer*>(self);
    return transfer.guarded([&] { transfer.takeHeaderLine({data, size}); }) ? size : 0;
}

std::size_t CurlTransfer::bodyCallback(char* data, std::size_t, std::size_t size, void* self)
{
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const auto bytes = std::as_bytes(std::span(data, size));
    return transfer.guarded([&] { transfer.takeBody(bytes); }) ? size : 0;
}

std::size_t CurlTransfer::readCallback(char* room, std::size_t, std::size_t size, void* self)
{
    auto& transfer = *static_cast<CurlTransfer*>(self);
    std::size_t length = 0;
    const auto read = [&]
    { length = transfer.file_->read(std::as_writable_bytes(std::span(room, size))); };
    return transfer.guarded(read) ? length : std::size_t{CURL_READFUNC_ABORT};
}

/// libcurl begins anew when a connection that was used again turns out to be dead.
int CurlTransfer::seekCallback(void* self, curl_off_t offset, int origin)
{
    auto& transfer = *static_cast<CurlTransfer*>(self);
    if (origin != SEEK_SET || !transfer.file_)
        return CURL_SEEKFUNC_CANTSEEK;
    transfer.file_->seek(offset);
    return CURL_SEEKFUNC_OK;
}

int CurlTransfer::sendCallback(void* self, char*, char*, int, int)
{
    auto& transfer = *static_cast<CurlTransfer*>(self);
    return transfer.guarded([&] { transfer.aboutToSend(); }) ? CURL_PREREQFUNC_OK
                                                             : CURL_PREREQFUNC_ABORT;
}

int CurlTransfer::progressCallback(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    auto& transfer = *static_cast<CurlTransfer*>(self);
    return transfer.guarded([&] { transfer.noteSent(); }) ? 0 : 1;
}

/// libcurl resends by itself when a connection that was used again turns out to be dead. A request
/// that does something each time must then not have reached the server.
void CurlTransfer::aboutToSend() const
{
    if (info<long>(CURLINFO_REQUEST_SIZE) > 0 && !isIdempotent(task_->request().method))
        throw URLError(URLError::Code::connectionLost);
}

void CurlTransfer::takeHeaderLine(std::string_view line)
{
    headBytes_ += line.size();
    if (headBytes_ > headLimit || ++headLines_ > headLineLimit)
        throw URLError(URLError::Code::protocol);
    // What comes after the head are trailers, which nobody waits for.
    if (headComplete_)
        return;
    if (line == "\r\n" || line == "\n")
        endHead();
    else if (!std::exchange(atStatusLine_, false))
        fields_.addLine(line);
}

void CurlTransfer::endHead()
{
    constexpr long switchingProtocols = 101;
    constexpr long firstFinalStatus = 200;
    const long status = info<long>(CURLINFO_RESPONSE_CODE);
    if (status == switchingProtocols)
        throw URLError(URLError::Code::protocol);
    headComplete_ = status >= firstFinalStatus;
    if (!headComplete_)
    {
        fields_.clear();
        atStatusLine_ = true;
    }
    noteSent();
}

void CurlTransfer::noteSent() const
{
    if (hasBody_)
        task_->noteSent(info<curl_off_t>(CURLINFO_SIZE_UPLOAD_T));
}

void CurlTransfer::takeBody(std::span<const std::byte> bytes)
{
    if (room_ == 0)
        expectedLength_ = info<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    const std::size_t limit = options_.bodyLimit();
    if (bytes.size() > limit - body_.size() || std::cmp_greater(expectedLength_, limit))
        throw URLError(URLError::Code::tooLarge);
    makeRoom(body_.size() + bytes.size());
    body_.append(bytes);
    task_->noteReceived(expectedLength_, static_cast<std::int64_t>(body_.size()));
}

/// Moves a usual body at most once, from a small buffer to one for all that may come: the room that
/// is not used costs addresses, while growing step by step would hold it twice. What a server or a
/// high limit only announces is not reserved as a whole: there may not be as many addresses.
void CurlTransfer::makeRoom(std::size_t bytes)
{
    constexpr std::size_t small = 4096;
    constexpr std::size_t large = std::size_t{256} * 1024 * 1024;
    if (bytes <= room_)
        return;
    std::size_t longest = bytes <= small ? small : options_.bodyLimit();
    if (std::cmp_greater_equal(expectedLength_, bytes))
        longest = static_cast<std::size_t>(expectedLength_);
    room_ = std::min(longest, std::max(large, 2 * bytes));
    body_.reserve(room_);
}

URLCompletion CurlTransfer::outcome(CURLcode result)
{
    URLCompletion completion;
    completion.error = failure(result);
    if (completion.error)
        return completion;
    noteSent();
    const auto length = static_cast<std::int64_t>(body_.size());
    task_->noteReceived(expectedLength_ < 0 && length == 0 ? 0 : expectedLength_, length);
    completion.body = std::move(body_);
    completion.response = response();
    return completion;
}

std::exception_ptr CurlTransfer::failure(CURLcode result) const
{
    if (thrown_)
        return thrown_;
    if (result == CURLE_OUT_OF_MEMORY)
        return std::make_exception_ptr(std::bad_alloc());
    // libcurl takes a connection that is closed inside a head for success, and one that is closed
    // after an interim answer for one without an answer.
    if (!headComplete_ && (result == CURLE_OK || (result == CURLE_GOT_NOTHING && headBytes_ > 0)))
        return std::make_exception_ptr(URLError(URLError::Code::truncated));
    if (result == CURLE_OK)
        return nullptr;
    return std::make_exception_ptr(
        URLError(codeOf({.result = result,
                         .message = message_,
                         .systemError = info<long>(CURLINFO_OS_ERRNO),
                         .proxyStatus = info<long>(CURLINFO_HTTP_CONNECTCODE)})));
}

URLResponse CurlTransfer::response()
{
    const auto status = static_cast<int>(info<long>(CURLINFO_RESPONSE_CODE));
    return {task_->takeURL(), status, std::move(fields_)};
}

std::shared_ptr<CurlTask> CurlTransfer::release()
{
    body_.clear();
    fields_.clear();
    headers_.clear();
    thrown_ = nullptr;
    if (hasBody_)
    {
        setOption(handle(), CURLOPT_POSTFIELDS, "");
        setOption(handle(), CURLOPT_NOPROGRESS, 1L);
    }
    if (file_)
        setOption(handle(), CURLOPT_UPLOAD_BUFFERSIZE, CurlOptions::sendBuffer);
    file_.reset();
    return std::exchange(task_, nullptr);
}

}  // namespace platform
