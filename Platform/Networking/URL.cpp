#include "Platform/Networking/URL.hpp"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <new>

#include <curl/curl.h>

namespace platform
{
namespace
{

using Handle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

bool isControl(char character)
{
    return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
}

bool isASCII(char character)
{
    return static_cast<unsigned char>(character) < 0x80;
}

/// Applies `text` to what the handle holds: alone the first time, as a reference afterwards.
bool apply(const Handle& handle, std::string_view text, unsigned flags)
{
    if (std::ranges::any_of(text, isControl))
        return false;
    const std::string terminated(text);
    const CURLUcode code = curl_url_set(handle.get(), CURLUPART_URL, terminated.c_str(), flags);
    if (code == CURLUE_OUT_OF_MEMORY)
        throw std::bad_alloc();
    return code == CURLUE_OK;
}

std::optional<std::string> part(const Handle& handle, CURLUPart which, unsigned flags = 0)
{
    char* text = nullptr;
    if (curl_url_get(handle.get(), which, &text, flags) != CURLUE_OK)
        return std::nullopt;
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return std::string(text);
}

/// The host, when it has a spelling that does not depend on the machine's locale.
std::optional<std::string> hostOf(const Handle& handle)
{
    auto host = part(handle, CURLUPART_HOST);
    if (!host || !std::ranges::all_of(*host, isASCII))
        return std::nullopt;
    return host;
}

Handle newHandle()
{
    Handle handle(curl_url(), &curl_url_cleanup);
    if (!handle)
        throw std::bad_alloc();
    return handle;
}

bool isLoopbackNumber(const std::string& host)
{
    in_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == 127;
}

}  // namespace

std::optional<URL> URL::resolve(std::string_view base, std::string_view relative)
{
    const Handle handle = newHandle();
    if (!apply(handle, base, 0) || !hostOf(handle))
        return std::nullopt;
    if (!relative.empty() && !apply(handle, relative, CURLU_URLENCODE))
        return std::nullopt;

    // An escape in a host is undone once it is read, a number in what that gives only at the next
    // reading: "127%2E1" is "127.1", and that is 127.0.0.1.
    auto text = part(handle, CURLUPART_URL);
    if (!text || !apply(handle, *text, 0))
        return std::nullopt;
    text = part(handle, CURLUPART_URL);
    auto scheme = part(handle, CURLUPART_SCHEME);
    auto host = hostOf(handle);
    if (!text || !scheme || !host)
        return std::nullopt;

    URL url;
    url.text_ = std::move(*text);
    url.scheme_ = std::move(*scheme);
    url.host_ = std::move(*host);
    const std::string port = part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("");
    std::from_chars(port.data(), port.data() + port.size(), url.port_);
    return url;
}

std::optional<URL> URL::parse(std::string_view text)
{
    return resolve(text, {});
}

std::optional<URL> URL::resolved(std::string_view relative) const
{
    return resolve(text_, relative);
}

std::string URL::path() const
{
    const Handle handle = newHandle();
    apply(handle, text_, 0);
    return part(handle, CURLUPART_PATH).value_or("/");
}

bool URL::isLoopback() const
{
    return host_ == "[::1]" || strcasecmp(host_.c_str(), "localhost") == 0 ||
           isLoopbackNumber(host_);
}

}  // namespace platform
