#include "benchmarks/RawMulti.hpp"

#include "benchmarks/Server.hpp"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace
{

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "The raw request failed: %s\n", what);
    std::exit(1);
}

template <class Value>
void set(CURL* handle, CURLoption option, Value value)
{
    if (curl_easy_setopt(handle, option, value) != CURLE_OK)
        fail("an option is refused");
}

std::size_t store(char* data, std::size_t, std::size_t size, void* body)
{
    static_cast<std::string*>(body)->append(data, size);
    return size;
}

/// The options that the library's session sets, so that both do the same on the wire.
void setTransport(CURL* handle)
{
    set(handle, CURLOPT_NOSIGNAL, 1L);
    set(handle, CURLOPT_QUICK_EXIT, 1L);
    set(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    set(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(handle, CURLOPT_HTTP09_ALLOWED, 0L);
    set(handle, CURLOPT_FOLLOWLOCATION, 0L);
    set(handle, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NONE));
    set(handle, CURLOPT_PROXY, "");
    set(handle, CURLOPT_NOPROXY, "");
    set(handle, CURLOPT_TIMEOUT_MS, 60'000L);
    set(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    set(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    set(handle, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    set(handle, CURLOPT_CAINFO, static_cast<const char*>(nullptr));
    std::string& authority = server().authority;
    curl_blob blob{authority.data(), authority.size(), CURL_BLOB_NOCOPY};
    set(handle, CURLOPT_CAINFO_BLOB, &blob);
}

}  // namespace

RawTransfer::RawTransfer(const std::string& address) : handle_(curl_easy_init())
{
    for (const auto& [name, value] : requestHeaders())
        headers_ = curl_slist_append(headers_, (name + ": " + value).c_str());
    setTransport(handle_);
    set(handle_, CURLOPT_HTTPHEADER, headers_);
    set(handle_, CURLOPT_URL, address.c_str());
    set(handle_, CURLOPT_PRIVATE, this);
    set(handle_, CURLOPT_WRITEFUNCTION, &store);
    set(handle_, CURLOPT_WRITEDATA, &body_);
}

RawTransfer::~RawTransfer()
{
    curl_easy_cleanup(handle_);
    curl_slist_free_all(headers_);
}

RawTransfer& RawTransfer::of(CURL* handle)
{
    void* self = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &self);
    return *static_cast<RawTransfer*>(self);
}

void RawTransfer::check(CURLcode result) const
{
    long status = 0;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
    if (result != CURLE_OK || status != 200 || body_.size() != Server::bodySize)
        fail(curl_easy_strerror(result));
}

/// libcurl's event interface on epoll.
struct RawMulti::Events
{
    explicit Events(CURLM* handle) : multi(handle)
    {
        curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &onSocket);
        curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
        curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &onTimer);
        curl_multi_setopt(multi, CURLMOPT_TIMERDATA, this);
    }
    ~Events() { close(epoll); }

    static int onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known)
    {
        auto& events = *static_cast<Events*>(self);
        epoll_event event{.events = 0, .data = {.fd = socket}};
        if (what & CURL_POLL_IN)
            event.events |= EPOLLIN;
        if (what & CURL_POLL_OUT)
            event.events |= EPOLLOUT;
        const int change = what == CURL_POLL_REMOVE ? EPOLL_CTL_DEL
                           : known                  ? EPOLL_CTL_MOD
                                                    : EPOLL_CTL_ADD;
        epoll_ctl(events.epoll, change, socket, &event);
        if (!known)
            curl_multi_assign(events.multi, socket, self);
        return 0;
    }

    static int onTimer(CURLM*, long milliseconds, void* self)
    {
        static_cast<Events*>(self)->wait = milliseconds;
        return 0;
    }

    void turn()
    {
        int running = 0;
        if (wait == 0)
        {
            wait = -1;
            curl_multi_socket_action(multi, CURL_SOCKET_TIMEOUT, 0, &running);
            return;
        }
        std::array<epoll_event, 64> ready;
        const int count = epoll_wait(epoll, ready.data(), ready.size(), static_cast<int>(wait));
        for (int index = 0; index < count; ++index)
        {
            const epoll_event& event = ready[static_cast<std::size_t>(index)];
            const int what = ((event.events & EPOLLIN) ? CURL_CSELECT_IN : 0) |
                             ((event.events & EPOLLOUT) ? CURL_CSELECT_OUT : 0) |
                             ((event.events & (EPOLLERR | EPOLLHUP)) ? CURL_CSELECT_ERR : 0);
            curl_multi_socket_action(multi, event.data.fd, what, &running);
        }
        if (count == 0)
            curl_multi_socket_action(multi, CURL_SOCKET_TIMEOUT, 0, &running);
    }

    CURLM* const multi;
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    long wait = -1;
};

RawMulti::RawMulti(const std::string& address, std::size_t inFlight, RawWaiting waiting)
    : multi_(curl_multi_init())
{
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, 64L);
    if (waiting == RawWaiting::events)
        events_ = std::make_unique<Events>(multi_);
    for (std::size_t i = 0; i < inFlight; ++i)
        transfers_.push_back(std::make_unique<RawTransfer>(address));
}

RawMulti::~RawMulti()
{
    curl_multi_cleanup(multi_);
}

void RawMulti::run(std::size_t count)
{
    toStart_ = count;
    for (const auto& transfer : transfers_)
        begin(*transfer);
    while (running_ > 0)
    {
        turn();
        collect();
    }
}

void RawMulti::begin(RawTransfer& transfer)
{
    if (toStart_ == 0)
        return;
    --toStart_;
    ++running_;
    transfer.prepare();
    curl_multi_add_handle(multi_, transfer.handle());
}

void RawMulti::collect()
{
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left))
    {
        auto& transfer = RawTransfer::of(message->easy_handle);
        transfer.check(message->data.result);
        curl_multi_remove_handle(multi_, transfer.handle());
        --running_;
        begin(transfer);
    }
}

void RawMulti::turn()
{
    if (events_)
        return events_->turn();
    int running = 0;
    curl_multi_perform(multi_, &running);
    // What has ended is taken first: another transfer may be there to start.
    if (static_cast<std::size_t>(running) == running_)
        curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
}
