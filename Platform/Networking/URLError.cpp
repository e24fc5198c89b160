#include "Platform/Networking/URLError.hpp"

#include "Platform/Networking/HeaderName.hpp"

#include <algorithm>
#include <iterator>

namespace platform
{
namespace
{

struct Texts
{
    URLError::Code code;
    const char* what;
    const char* description;
};

using enum URLError::Code;

constexpr Texts texts[] = {
    {connectionRefused, "URLError.connectionRefused",
     "No connection to the server could be made. Check the network connection and try again."},
    {nameNotFound, "URLError.nameNotFound",
     "The server's name was not found. Check the network connection and try again."},
    {connectionLost, "URLError.connectionLost",
     "The connection to the server was lost. Try again."},
    {truncated, "URLError.truncated",
     "The server broke off in the middle of its answer. Try again."},
    {timeout, "URLError.timeout", "The server took too long to answer. Try again later."},
    {protocol, "URLError.protocol",
     "The server's answer is not valid HTTP. Check the server's address."},
    {tooLarge, "URLError.tooLarge",
     "The server's answer is larger than allowed. Check the server's address."},
    {tls, "URLError.tls",
     "No secure connection to the server could be made. Check the date of this machine and the "
     "server's certificate."},
    {proxy, "URLError.proxy",
     "The proxy did not let the request through. Check the proxy settings."},
    {insecureURL, "URLError.insecureURL",
     "The address is not secure. Use an address that begins with https://."},
    {invalidMethod, "URLError.invalidMethod",
     "The request's method is not valid. Use a word of letters, such as GET."},
    {invalidHeader, "URLError.invalidHeader",
     "cannot be sent. Remove line breaks and other control characters from it, and leave headers "
     "that frame the message to the session."},
    {unreadableFile, "URLError.unreadableFile",
     "The file to be sent cannot be read. Check that it is still there, that it is a file and no "
     "folder, and that this program may read it."},
};

const Texts& textsOf(URLError::Code code)
{
    return *std::ranges::find(texts, code, &Texts::code);
}

}  // namespace

URLError::URLError(Code code) : code_(code) {}

URLError URLError::invalidHeader(std::string_view name)
{
    URLError error(Code::invalidHeader);
    std::ranges::replace_copy_if(
        name, std::back_inserter(error.header_), [](char c) { return !isTokenCharacter(c); }, '?');
    return error;
}

const char* URLError::what() const noexcept
{
    return textsOf(code_).what;
}

std::string URLError::errorDescription() const
{
    const char* description = textsOf(code_).description;
    return code_ == Code::invalidHeader ? "The header \"" + header_ + "\" " + description
                                        : description;
}

}  // namespace platform
