#include "Platform/Networking/HeaderLines.hpp"

#include "Platform/Networking/HeaderName.hpp"
#include "Platform/Networking/URLError.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

namespace platform
{
namespace
{

// These say where a message ends or whose connection it is. Two opinions on that are how one
// request is smuggled inside another.
constexpr std::string_view framing[] = {
    "connection", "content-length", "expect",  "host",
    "te",         "trailer",        "upgrade", "transfer-encoding"};

// What libcurl adds by itself: the first to every request, the others to one with a body.
constexpr std::string_view added[] = {"Accept", "Content-Type", "Expect"};

bool isFraming(std::string_view name)
{
    return std::ranges::any_of(framing, [name](auto other) { return sameName(name, other); });
}

/// Without a way out of the loop and on bytes alone, so that it is compiled to vector instructions:
/// a token has a thousand characters.
bool hasControl(std::string_view value)
{
    unsigned char found = 0;
    for (const char character : value)
    {
        const auto byte = static_cast<unsigned char>(character);
        found |= static_cast<unsigned char>((byte < 0x20) | (byte == 0x7F));
    }
    return found != 0;
}

/// The value without the blanks around it, which are no part of it (RFC 9110, section 5.5).
std::string_view trimmed(std::string_view value)
{
    const auto first = value.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return {};
    return value.substr(first, value.find_last_not_of(' ') - first + 1);
}

void check(const HTTPHeader& header)
{
    if (!isToken(header.name) || isFraming(header.name) || hasControl(header.value.view()))
        throw URLError::invalidHeader(header.name);
}

}  // namespace

curl_slist* HeaderLines::build(const URLRequest& request, bool hasBody)
{
    constexpr std::size_t punctuation = sizeof(": ");
    std::size_t length = 0;
    for (const HTTPHeader& header : request.headers)
    {
        check(header);
        length += header.name.size() + header.value.size() + punctuation;
    }
    for (const std::string_view name : added)
        length += name.size() + punctuation;

    text_.resize(length);
    used_ = 0;
    nodes_.clear();
    for (const HTTPHeader& header : request.headers)
    {
        // With a colon, libcurl would take an empty value as an order to leave the header out.
        const std::string_view value = trimmed(header.value.view());
        append(header.name, value.empty() ? ";" : ": ", value);
    }
    // libcurl looks for each of its own headers in this list, so a needless line costs time.
    const std::size_t adds = hasBody || request.method != "GET" ? std::size(added) : 1;
    for (const std::string_view name : std::span(added).first(adds))
        if (!request.header(name))
            append(name, ":", {});

    for (std::size_t index = 1; index < nodes_.size(); ++index)
        nodes_[index - 1].next = &nodes_[index];
    return nodes_.data();
}

void HeaderLines::append(std::string_view name, std::string_view separator, std::string_view value)
{
    char* const line = reinterpret_cast<char*>(text_.mutableView().data()) + used_;
    char* end = line;
    for (const std::string_view part : {name, separator, value})
    {
        // std::copy went byte by byte here.
        if (!part.empty())
            std::memcpy(end, part.data(), part.size());
        end += part.size();
    }
    *end++ = '\0';
    used_ += static_cast<std::size_t>(end - line);
    nodes_.push_back({line, nullptr});
}

}  // namespace platform
