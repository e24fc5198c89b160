#pragma once

#include "Platform/Networking/URLSession.hpp"

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace platform
{

class CurlEngine;

/// The URL session of libcurl: all transfers on one thread of its own, which starts with the first
/// transfer, and one pool of connections.
///
/// What it does to a request: https everywhere, http to this machine alone, anything else is
/// `insecureURL`; TLS 1.2 at least; HTTP/1.1, because a few small calls gain nothing from HTTP/2
/// and its one shared connection makes each of them depend on the others' fate. It sends the
/// headers of the request, Host and Content-Length, and nothing of its own: no cookie, no user
/// agent, no credential of the address or of a netrc file. Redirects are answers like others. A
/// request that is not idempotent is never sent twice. Nothing is cached and nothing is stored.
///
/// The proxy of the environment (`https_proxy`, `all_proxy`, `no_proxy`, as usual among Linux
/// programs) is read once, when the session is made. This machine is never called through a proxy.
///
/// The destructor is `shutdown()`. When it runs inside a completion, the thread ends afterwards.
/// A session that lives until the process exits needs `shutdown()` before `main` returns: the
/// thread would otherwise still use OpenSSL while that cleans up.
class CurlURLSession final : public URLSession
{
public:
    /// What may differ from one session to another.
    struct Configuration
    {
        /// Limits every transfer as a whole; the smaller of it and the request's own limit counts.
        std::optional<std::chrono::milliseconds> timeLimit = {};

        /// The longest body that is taken, in bytes, after any transfer coding is undone.
        std::size_t bodyLimit = std::size_t{16} * 1024 * 1024;

        /// Certificates in PEM that are trusted INSTEAD of those of the system. For development
        /// servers with an authority of their own. The constructor throws `std::invalid_argument`
        /// when there is none in it.
        std::optional<std::string> trustedAuthority = {};

        /// Where to connect instead, by host name: "127.0.0.1", "[::1]", "127.0.0.1:8443". Names
        /// in certificates and headers stay those of the address. For tools and tests.
        std::map<std::string, std::string> hostAddresses = {};
    };

    CurlURLSession();
    explicit CurlURLSession(Configuration configuration);
    ~CurlURLSession() override;

    std::shared_ptr<URLSessionTask> dataTask(URLRequest request, Completion completion) override;

    /// The file is read on the session's thread. Mind the request's time limit, which counts for
    /// the whole upload.
    std::shared_ptr<URLSessionTask> uploadTask(URLRequest request, std::filesystem::path file,
                                               Completion completion) override;

    /// Ends all transfers with `CancellationError`, closes all connections and waits for the
    /// thread to end. Tasks that are resumed later end the same way, on the caller's thread. May be
    /// called again; inside a completion it does not wait.
    void shutdown();

private:
    std::shared_ptr<CurlEngine> engine_;
};

}  // namespace platform
