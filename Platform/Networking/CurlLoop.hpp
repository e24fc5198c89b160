#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include <curl/curl.h>

namespace platform
{

/// A multi handle of libcurl whose sockets are waited for with epoll: a turn then costs as much as
/// there is to do, where `curl_multi_perform` looks at every transfer that runs.
///
/// Lives on one thread, which must also be the one that destroys it. Handles that are added to it
/// must be prepared with `adopt`, and may be destroyed before it.
class CurlLoop
{
public:
    /// `wakeDescriptor` (an eventfd) ends a wait from any other thread.
    explicit CurlLoop(int wakeDescriptor);
    CurlLoop(const CurlLoop&) = delete;
    CurlLoop& operator=(const CurlLoop&) = delete;
    ~CurlLoop();

    CURLM* multi() const noexcept { return multi_; }

    /// Lets this object open and close the sockets of the handle's connections.
    void adopt(CURL* handle);

    /// Lets libcurl do what is due by time, which includes the start of new transfers.
    void runTimer();

    enum class Wait
    {
        no,          // Only what is ready already.
        untilEvent,  // A socket is ready, a time is due or the descriptor is written.
    };

    /// Waits, and lets libcurl act on the sockets that are ready.
    void wait(Wait wait);

private:
    using Clock = std::chrono::steady_clock;

    struct Socket
    {
        std::uint32_t watched = 0;  // What epoll has.
        std::uint32_t wanted = 0;   // What libcurl asks for.
        bool adopted = false;       // Opened here, so that its end will be known.
    };

    static int socketCallback(CURL*, curl_socket_t socket, int what, void* self, void*);
    static int timerCallback(CURLM*, long milliseconds, void* self);
    static curl_socket_t openCallback(void* self, curlsocktype, curl_sockaddr* address);
    static int closeCallback(void* self, curl_socket_t socket);

    Socket& at(curl_socket_t socket);
    void watch(curl_socket_t socket, std::uint32_t events);
    void act(curl_socket_t socket, std::uint32_t events);
    int waitLimit() const;

    const int wakeDescriptor_;
    const int epoll_;
    CURLM* const multi_;
    std::vector<Socket> sockets_;
    std::optional<Clock::time_point> due_;
};

}  // namespace platform
