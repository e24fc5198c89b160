#pragma once

#include "Platform/Basics/LocalizedError.hpp"

#include <string>
#include <string_view>

namespace platform
{

/// Why a transfer brought no answer. It says where it failed, never what was sent: no address, no
/// header value and no body is part of any text.
///
/// Equality looks at the case alone.
class URLError final : public LocalizedError
{
public:
    /// Where the transfer failed.
    enum class Code
    {
        connectionRefused,  ///< No connection could be made.
        nameNotFound,       ///< The host's name has no address.
        connectionLost,     ///< The connection broke, or ended before any answer.
        truncated,          ///< The server ended in the middle of its answer.
        timeout,            ///< The limit of the request or of the session was reached.
        protocol,           ///< What came is not HTTP.
        tooLarge,           ///< The body is longer than the session's limit.
        tls,                ///< No trusted encrypted connection could be made.
        proxy,              ///< The proxy cannot be reached or does not let the request through.
        insecureURL,        ///< Neither https nor http to this machine.
        invalidMethod,      ///< The method is no HTTP token.
        invalidHeader,      ///< A header's name or value cannot be sent; see `header()`.
        unreadableFile,     ///< The file to be sent cannot be read, or got shorter meanwhile.
    };

    explicit URLError(Code code);

    /// The error `invalidHeader`. Characters that no header name has are shown as "?".
    static URLError invalidHeader(std::string_view name);

    Code code() const noexcept { return code_; }

    /// The name of the refused header; empty for every other case.
    const std::string& header() const noexcept { return header_; }

    const char* what() const noexcept override;
    std::string errorDescription() const override;

    bool operator==(const URLError& other) const noexcept { return code_ == other.code_; }

private:
    Code code_;
    std::string header_;
};

}  // namespace platform
