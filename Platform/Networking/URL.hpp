#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace platform
{

/// An absolute address that was understood: `https://api.example.net/v2/account`.
///
/// The parser is the one that also connects, so what was checked is what is called. It normalises
/// what it reads (`http://127.1` is `http://127.0.0.1/`); two addresses are equal when the
/// normalised texts are. Refused are texts with a control character (NUL among them), without a
/// scheme or a host, and hosts outside ASCII: an international name is given in its "xn--" form,
/// because its conversion would depend on the machine's locale.
///
/// A plain value.
class URL
{
public:
    static std::optional<URL> parse(std::string_view text);

    /// `relative` as a reference against `base` (RFC 3986, section 5): a path that begins with "/"
    /// replaces the whole path of the base. Spaces and non-ASCII letters in it are percent-encoded.
    static std::optional<URL> resolve(std::string_view base, std::string_view relative);
    std::optional<URL> resolved(std::string_view relative) const;

    const std::string& string() const noexcept { return text_; }
    const std::string& scheme() const noexcept { return scheme_; }

    /// The name or number of the host; an IPv6 address keeps its brackets.
    const std::string& host() const noexcept { return host_; }

    /// The port that is stated, or the scheme's own one.
    int port() const noexcept { return port_; }

    /// The path without query and fragment, "/" at least.
    std::string path() const;

    /// Whether the host is this machine by its very spelling: 127.0.0.0/8, [::1] or "localhost".
    bool isLoopback() const;

    bool operator==(const URL& other) const noexcept { return text_ == other.text_; }
    friend std::size_t hash_value(const URL& url) noexcept
    {
        return std::hash<std::string>{}(url.text_);
    }

private:
    URL() = default;

    std::string text_;
    std::string scheme_;
    std::string host_;
    int port_ = 0;
};

}  // namespace platform
