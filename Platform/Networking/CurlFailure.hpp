#pragma once

#include "Platform/Networking/URLError.hpp"

#include <string_view>

#include <curl/curl.h>

namespace platform
{

/// What libcurl tells about a transfer that failed.
struct CurlFailure
{
    CURLcode result;
    std::string_view message;  // In libcurl's words.
    long systemError;          // The `errno` of a failed connection, or 0.
    long proxyStatus;          // What a proxy answered, or 0.
};

/// The class of error that it is to our callers.
URLError::Code codeOf(const CurlFailure& failure);

}  // namespace platform
