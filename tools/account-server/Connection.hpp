#pragma once

#include "tools/account-server/Http.hpp"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>

namespace accountserver
{

class Connection;

/// What the connections of one listener share. It outlives them; used on the server's thread.
struct Service
{
    Handler handler;
    std::function<void(const std::string&)> log;  ///< method, path, status, milliseconds
    std::chrono::milliseconds idleTime{0};
    std::uint32_t headerLimit = 0;
    std::uint64_t bodyLimit = 0;
    boost::asio::ssl::context* tls = nullptr;  ///< null: plain HTTP

    std::unordered_set<Connection*> open;
    std::uint64_t accepted = 0;
    bool stopping = false;
    std::function<void()> whenEmpty;
};

/// One connection of a client, from its handshake to its end; keeps itself alive as long as it
/// runs.
class Connection
{
public:
    static void start(boost::asio::ip::tcp::socket socket, Service& service);
    virtual ~Connection() = default;

    /// Ends it now when it waits for a request, otherwise after the answer.
    virtual void retire() = 0;
};

}  // namespace accountserver
