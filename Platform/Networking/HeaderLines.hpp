#pragma once

#include "Platform/Networking/URLRequest.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <string_view>
#include <vector>

#include <curl/curl.h>

namespace platform
{

/// The headers of a request in the form that libcurl reads: a list of texts that end with NUL. The
/// texts lie in memory that is wiped, and the list belongs to this object.
class HeaderLines
{
public:
    /// The list for the request's headers, null when it is empty; valid until the next call of a
    /// function here. It also takes away what libcurl would add by itself, to a body above all.
    /// Throws `URLError::invalidHeader`.
    curl_slist* build(const URLRequest& request, bool hasBody);

    void clear() noexcept { text_.resize(0); }

private:
    void append(std::string_view name, std::string_view separator, std::string_view value);

    SecretBytes text_;
    std::size_t used_ = 0;
    std::vector<curl_slist> nodes_;
};

}  // namespace platform
