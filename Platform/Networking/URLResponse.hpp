#pragma once

#include "Platform/Networking/URL.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace platform
{

/// The headers of an answer, in the order in which they came. They lie in one piece of memory and
/// are looked at only when somebody asks, because hardly anybody does.
class HTTPFields
{
public:
    using Field = std::pair<std::string_view, std::string_view>;

    void add(std::string_view name, std::string_view value);

    /// Takes a line of a message's head as it stands, without judging it. A line that begins with a
    /// blank continues the one before (RFC 9112, section 5.2).
    void addLine(std::string_view line);

    /// The value of the first header of this name; names are compared without case. Like `all()`,
    /// it points into this object and holds until that changes.
    std::optional<std::string_view> value(std::string_view name) const;

    /// Every line that has a name, as name and value.
    std::vector<Field> all() const;

    void clear() noexcept { lines_.clear(); }

    bool operator==(const HTTPFields&) const = default;

private:
    SecretString lines_;
};

/// What a server answered, beside the body. A plain value.
struct URLResponse
{
    URL url;

    /// Absent when the answer did not come over HTTP.
    std::optional<int> status;

    HTTPFields headers = {};

    bool operator==(const URLResponse&) const = default;
};

/// The status code, or -1 when the response is not one of HTTP.
inline int httpStatusCode(const URLResponse& response)
{
    return response.status.value_or(-1);
}

}  // namespace platform
