#include "Platform/Networking/CurlOptions.hpp"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <utility>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

namespace platform
{
namespace
{

std::string environment(std::initializer_list<const char*> names)
{
    for (const char* name : names)
    {
        const char* value = std::getenv(name);
        if (value && *value)
            return value;
    }
    return {};
}

/// The certificates of a PEM text, read once for all connections: libcurl would read the text for
/// each. Null when there is no text.
X509_STORE* storeOf(const std::optional<std::string>& pem)
{
    if (!pem)
        return nullptr;
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(
        BIO_new_mem_buf(pem->data(), static_cast<int>(pem->size())), &BIO_free);
    std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(),
                                                                  &X509_STORE_free);
    if (!text || !store)
        throw std::bad_alloc();
    int count = 0;
    // The end of the text is an error to OpenSSL, and would be found by whoever asks next.
    ERR_set_mark();
    while (X509* const certificate = PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr))
    {
        count += X509_STORE_add_cert(store.get(), certificate);
        X509_free(certificate);
    }
    ERR_pop_to_mark();
    if (count == 0)
        throw std::invalid_argument("The trusted authority holds no certificate in PEM");
    // As libcurl has it: what is listed is trusted, also when it is not a root.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    return store.release();
}

curl_slist* connectTo(const std::map<std::string, std::string>& addresses)
{
    curl_slist* list = nullptr;
    for (const auto& [host, address] : addresses)
    {
        // "host:port:address:port"; an empty port stands for any and for the same one.
        const bool statesPort = address.rfind(':') != std::string::npos && !address.ends_with(']');
        std::string entry = host;
        entry.append("::").append(address).append(statesPort ? "" : ":");
        curl_slist* longer = curl_slist_append(list, entry.c_str());
        if (!longer)
        {
            curl_slist_free_all(list);
            throw std::bad_alloc();
        }
        list = longer;
    }
    return list;
}

}  // namespace

CurlOptions::CurlOptions(CurlURLSession::Configuration configuration)
    : configuration_(std::move(configuration)),
      trusted_(storeOf(configuration_.trustedAuthority), &X509_STORE_free),
      connectTo_(connectTo(configuration_.hostAddresses), &curl_slist_free_all),
      proxy_(environment({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})),
      noProxy_(environment({"no_proxy", "NO_PROXY"}))
{}

void CurlOptions::apply(CURL* handle) const
{
    // Signals belong to the host.
    setOption(handle, CURLOPT_NOSIGNAL, 1L);
    // A cancelled transfer does not wait for the name server; its look-up ends by itself.
    setOption(handle, CURLOPT_QUICK_EXIT, 1L);

    setOption(handle, CURLOPT_UPLOAD_BUFFERSIZE, sendBuffer);

    setOption(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    setOption(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    setOption(handle, CURLOPT_HTTP09_ALLOWED, 0L);
    setOption(handle, CURLOPT_FOLLOWLOCATION, 0L);
    setOption(handle, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    // Credentials in the address are part of its name, not an order to send them.
    setOption(handle, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NONE));
    setOption(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    setOption(handle, CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE));
    setOption(handle, CURLOPT_NOPROXY, noProxy_.c_str());
    if (connectTo_)
        setOption(handle, CURLOPT_CONNECT_TO, connectTo_.get());
    applyTrust(handle);
}

void CurlOptions::applyTrust(CURL* handle) const
{
    setOption(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    setOption(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    setOption(handle, CURLOPT_SSL_CTX_FUNCTION, &prepareContext);
    setOption(handle, CURLOPT_SSL_CTX_DATA, this);
    // libcurl reads the system's certificates once instead of for each connection, but only when
    // there is no folder of them beside the file.
    setOption(handle, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    if (trusted_)
        setOption(handle, CURLOPT_CAINFO, static_cast<const char*>(nullptr));
}

CURLcode CurlOptions::prepareContext(CURL*, void* context, void* self)
{
    auto* const made = static_cast<SSL_CTX*>(context);
    // libcurl lets SSLKEYLOGFILE write the keys of every connection into a file.
    SSL_CTX_set_keylog_callback(made, nullptr);
    // libcurl has the buffers of a connection freed whenever they are empty, which is twice in
    // every request. They are 34 KiB, and there are few connections.
    SSL_CTX_clear_mode(made, SSL_MODE_RELEASE_BUFFERS);
    if (X509_STORE* const trusted = static_cast<const CurlOptions*>(self)->trusted_.get())
        SSL_CTX_set1_cert_store(made, trusted);
    return CURLE_OK;
}

void CurlOptions::applyRoute(CURL* handle, bool loopback) const
{
    // An empty text, unlike none, keeps libcurl from asking the environment again.
    setOption(handle, CURLOPT_PROXY, loopback ? "" : proxy_.c_str());
}

std::chrono::milliseconds CurlOptions::timeLimit(std::chrono::milliseconds ofRequest) const
{
    constexpr std::chrono::milliseconds shortest(5);
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 20);
    return std::clamp(std::min(ofRequest, configuration_.timeLimit.value_or(longest)), shortest,
                      longest);
}

}  // namespace platform
