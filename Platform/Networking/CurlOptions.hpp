#pragma once

#include "Platform/Networking/CurlURLSession.hpp"

#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include <curl/curl.h>
#include <openssl/types.h>

namespace platform
{

/// The session's configuration as libcurl wants it, with the environment's proxy; the same for all
/// of its handles, and longer-lived than they are.
class CurlOptions
{
public:
    /// Throws `std::invalid_argument` when the trusted authority holds no certificate.
    explicit CurlOptions(CurlURLSession::Configuration configuration);
    CurlOptions(const CurlOptions&) = delete;
    CurlOptions& operator=(const CurlOptions&) = delete;

    /// libcurl makes such a buffer for each request, and its usual 64 KiB make the allocator give
    /// memory back to the system and ask for it again.
    static constexpr long sendBuffer = 16L * 1024;

    /// Sets everything that does not depend on a request.
    void apply(CURL* handle) const;

    /// Sets the way to the host: this machine is called directly.
    void applyRoute(CURL* handle, bool loopback) const;

    std::size_t bodyLimit() const noexcept { return configuration_.bodyLimit; }

    /// The limit of a transfer whose request has this one; a few milliseconds at least, because
    /// libcurl takes zero for "none" and looks at a limit of one too early.
    std::chrono::milliseconds timeLimit(std::chrono::milliseconds ofRequest) const;

private:
    void applyTrust(CURL* handle) const;

    static CURLcode prepareContext(CURL*, void* context, void* self);

    const CurlURLSession::Configuration configuration_;
    const std::unique_ptr<X509_STORE, void (*)(X509_STORE*)> trusted_;
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> connectTo_;
    std::string proxy_;
    std::string noProxy_;
};

/// `curl_easy_setopt` whose result cannot be passed over: an option that was refused could be the
/// one that checks certificates.
template <typename Value>
void setOption(CURL* handle, CURLoption option, Value value)
{
    const CURLcode code = curl_easy_setopt(handle, option, value);
    if (code == CURLE_OUT_OF_MEMORY)
        throw std::bad_alloc();
    if (code != CURLE_OK)
        throw std::invalid_argument("libcurl refuses option " + std::to_string(option));
}

}  // namespace platform
