#pragma once

#include <boost/asio/awaitable.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace accountserver
{

struct Request
{
    std::string method;
    std::string path;                                         ///< without the query
    std::string query;                                        ///< without "?"
    std::map<std::string, std::string, std::less<>> headers;  ///< names in lower case
    std::string body;

    std::string_view header(std::string_view name) const
    {
        const auto found = headers.find(name);
        return found == headers.end() ? std::string_view() : std::string_view(found->second);
    }
};

struct Response
{
    int status = 204;
    std::string contentType;  ///< empty: no body
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
};

/// How an answer goes onto the wire. All but `whole` are faults that were asked for.
struct Delivery
{
    enum class Kind
    {
        whole,
        partOfHeaders,  ///< closes inside the header
        partOfBody,     ///< closes in the middle of the body
        reset,          ///< no answer, TCP reset
        drip,           ///< `pieceSize` bytes every `interval`
        raw,            ///< the body alone, no HTTP around it
    };
    enum class Framing
    {
        length,
        chunked,
        close,  ///< the end of the connection ends the body
    };

    Kind kind = Kind::whole;
    Framing framing = Framing::length;
    std::size_t pieceSize = 1;
    std::chrono::milliseconds interval{100};
};

struct Outcome
{
    Response response;
    Delivery delivery;
};

using Handler = std::function<boost::asio::awaitable<Outcome>(Request)>;

}  // namespace accountserver
