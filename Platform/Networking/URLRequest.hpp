#pragma once

#include "Platform/Networking/URL.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform
{

/// One header line. The value may be a credential and is kept as one.
struct HTTPHeader
{
    std::string name;
    SecretString value;

    bool operator==(const HTTPHeader&) const = default;
};

/// What to ask of a server. A plain value: nothing is judged until a session sends it.
struct URLRequest
{
    URL url;
    std::string method = "GET";
    std::vector<HTTPHeader> headers = {};
    std::optional<SecretBytes> body = {};

    /// Limits the whole transfer, from the look-up of the name to the last byte of the answer.
    std::chrono::milliseconds timeout = std::chrono::seconds(60);

    /// Makes `value` the only one of this name; names are compared without case.
    void setHeader(std::string_view name, std::string_view value);

    /// Adds a line, also when there is one of this name.
    void addHeader(std::string_view name, SecretString value);

    /// The first header of this name, or null.
    const HTTPHeader* header(std::string_view name) const;

    bool operator==(const URLRequest&) const = default;
};

}  // namespace platform
