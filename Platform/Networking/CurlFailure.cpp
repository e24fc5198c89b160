#include "Platform/Networking/CurlFailure.hpp"

#include <cerrno>

namespace platform
{

URLError::Code codeOf(const CurlFailure& failure)
{
    using enum URLError::Code;
    constexpr long firstRefusal = 300;
    if (failure.proxyStatus >= firstRefusal)
        return proxy;

    switch (failure.result)
    {
        case CURLE_COULDNT_RESOLVE_HOST:
            return nameNotFound;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_PROXY:
            return proxy;
        case CURLE_COULDNT_CONNECT:
            // A server that accepts and resets at once may be seen as early as here.
            return failure.systemError == ECONNRESET ? connectionLost : connectionRefused;
        case CURLE_OPERATION_TIMEDOUT:
            return timeout;
        case CURLE_PARTIAL_FILE:
            return truncated;
        case CURLE_FILESIZE_EXCEEDED:
            return tooLarge;
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_BAD_CONTENT_ENCODING:
        case CURLE_WRITE_ERROR:
            return protocol;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CLIENTCERT:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_USE_SSL_FAILED:
            return tls;
        case CURLE_RECV_ERROR:
            // The one case where libcurl's code does not tell bad framing from a lost connection.
            return failure.message.find("chunk") == std::string_view::npos ? connectionLost
                                                                           : protocol;
        default:
            return connectionLost;
    }
}

}  // namespace platform
