#include "Platform/Networking/CurlLoop.hpp"

#include "Platform/Networking/CurlOptions.hpp"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <new>
#include <system_error>

namespace platform
{
namespace
{

// Idle connections are kept for the next calls; libcurl's own number shrinks with the load.
constexpr long keptConnections = 64;

int newEpoll(int wakeDescriptor)
{
    const int descriptor = epoll_create1(EPOLL_CLOEXEC);
    // On the edge: each write is told once and the descriptor need not be read.
    epoll_event event{.events = EPOLLIN | EPOLLET, .data = {.fd = wakeDescriptor}};
    if (descriptor < 0 || epoll_ctl(descriptor, EPOLL_CTL_ADD, wakeDescriptor, &event) != 0)
        throw std::system_error(errno, std::generic_category(), "epoll");
    return descriptor;
}

CURLM* newMulti()
{
    CURLM* const multi = curl_multi_init();
    if (!multi)
        throw std::bad_alloc();
    return multi;
}

std::uint32_t eventsFor(int what)
{
    if (what == CURL_POLL_REMOVE)
        return 0;
    return ((what & CURL_POLL_IN) ? std::uint32_t{EPOLLIN} : 0U) |
           ((what & CURL_POLL_OUT) ? std::uint32_t{EPOLLOUT} : 0U);
}

int actionFor(std::uint32_t events)
{
    return ((events & EPOLLIN) ? CURL_CSELECT_IN : 0) |
           ((events & EPOLLOUT) ? CURL_CSELECT_OUT : 0) |
           ((events & (EPOLLERR | EPOLLHUP)) ? CURL_CSELECT_ERR : 0);
}

}  // namespace

CurlLoop::CurlLoop(int wakeDescriptor)
    : wakeDescriptor_(wakeDescriptor), epoll_(newEpoll(wakeDescriptor)), multi_(newMulti())
{
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &socketCallback);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &timerCallback);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, keptConnections);
}

CurlLoop::~CurlLoop()
{
    curl_multi_cleanup(multi_);
    close(epoll_);
}

void CurlLoop::adopt(CURL* handle)
{
    setOption(handle, CURLOPT_OPENSOCKETFUNCTION, &openCallback);
    setOption(handle, CURLOPT_OPENSOCKETDATA, this);
    setOption(handle, CURLOPT_CLOSESOCKETFUNCTION, &closeCallback);
    setOption(handle, CURLOPT_CLOSESOCKETDATA, this);
}

curl_socket_t CurlLoop::openCallback(void* self, curlsocktype, curl_sockaddr* address)
{
    // A program that the host starts must not inherit the connection.
    const int socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket >= 0)
        static_cast<CurlLoop*>(self)->at(socket) = {.adopted = true};
    return socket;
}

int CurlLoop::closeCallback(void* self, curl_socket_t socket)
{
    static_cast<CurlLoop*>(self)->at(socket) = {};
    return close(socket);
}

int CurlLoop::socketCallback(CURL*, curl_socket_t socket, int what, void* self, void*)
{
    static_cast<CurlLoop*>(self)->watch(socket, eventsFor(what));
    return 0;
}

CurlLoop::Socket& CurlLoop::at(curl_socket_t socket)
{
    const auto index = static_cast<std::size_t>(socket);
    if (index >= sockets_.size())
        sockets_.resize(index + 1);
    return sockets_[index];
}

/// A connection between two transfers stays watched: taking it out and in again for each transfer
/// would be the dearest part of the loop.
void CurlLoop::watch(curl_socket_t socket, std::uint32_t events)
{
    Socket& known = at(socket);
    known.wanted = events;
    if (events == known.watched || (events == 0 && known.adopted))
        return;
    const int change = events == 0 ? EPOLL_CTL_DEL : known.watched ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    epoll_event event{.events = events, .data = {.fd = socket}};
    epoll_ctl(epoll_, change, socket, &event);
    known.watched = events;
}

int CurlLoop::timerCallback(CURLM*, long milliseconds, void* self)
{
    auto& due = static_cast<CurlLoop*>(self)->due_;
    if (milliseconds < 0)
        due.reset();
    else
        due = Clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
}

void CurlLoop::runTimer()
{
    while (due_ && *due_ <= Clock::now())
    {
        due_.reset();
        int running = 0;
        curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
    }
}

int CurlLoop::waitLimit() const
{
    if (!due_)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due_ - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

void CurlLoop::wait(Wait wait)
{
    std::array<epoll_event, 64> events;
    const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()),
                                 wait == Wait::no ? 0 : waitLimit());
    for (int index = 0; index < count; ++index)
    {
        const epoll_event& event = events[static_cast<std::size_t>(index)];
        if (event.data.fd != wakeDescriptor_)
            act(event.data.fd, event.events);
    }
}

void CurlLoop::act(curl_socket_t socket, std::uint32_t events)
{
    Socket& known = at(socket);
    if (known.wanted == 0)
    {
        // The server ended an idle connection; libcurl will see it when it wants to use it again.
        epoll_ctl(epoll_, EPOLL_CTL_DEL, socket, nullptr);
        known.watched = 0;
        return;
    }
    int running = 0;
    curl_multi_socket_action(multi_, socket, actionFor(events), &running);
}

}  // namespace platform
