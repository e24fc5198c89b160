#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <curl/curl.h>

/// One easy handle whose options are set once, and the buffer that the bodies go to.
class RawTransfer
{
public:
    explicit RawTransfer(const std::string& address);
    RawTransfer(const RawTransfer&) = delete;
    RawTransfer& operator=(const RawTransfer&) = delete;
    ~RawTransfer();

    CURL* handle() const { return handle_; }
    static RawTransfer& of(CURL* handle);

    /// Makes room for the next body.
    void prepare() { body_.clear(); }

    /// Stops the program unless the answer is the one that was expected.
    void check(CURLcode result) const;

private:
    CURL* handle_;
    curl_slist* headers_ = nullptr;
    std::string body_;
};

/// How a thread waits for the sockets of a multi handle.
enum class RawWaiting
{
    poll,   ///< `curl_multi_poll`, `curl_multi_perform`
    events  ///< epoll, `curl_multi_socket_action`
};

/// A fixed number of transfers at a time on libcurl's multi interface, as written by hand on the
/// calling thread: connections kept, handles and buffers used again, no allocation of its own.
class RawMulti
{
public:
    RawMulti(const std::string& address, std::size_t inFlight, RawWaiting waiting);
    ~RawMulti();

    /// Sends `count` requests and takes their answers.
    void run(std::size_t count);

private:
    struct Events;

    void begin(RawTransfer& transfer);
    void collect();
    void turn();

    CURLM* multi_;
    std::vector<std::unique_ptr<RawTransfer>> transfers_;
    std::unique_ptr<Events> events_;
    std::size_t toStart_ = 0;
    std::size_t running_ = 0;
};
