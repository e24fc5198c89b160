#pragma once

#include <memory>
#include <string>

/// TLS connections as made by hand on OpenSSL: one context with the authority loaded once, then for
/// each a socket, `connect` and `SSL_connect`, with the certificate and the host's name checked.
class BareConnector
{
public:
    /// To the server at "https://localhost:PORT". With tickets, the session of an earlier
    /// connection is resumed, as libcurl does it; that server must give tickets.
    BareConnector(const std::string& origin, bool withTickets);
    ~BareConnector();

    /// A new connection, opened and closed. Nothing is sent.
    void connect();

    /// A new connection that carries the request; its answer is read to the end.
    void connectAndRequest();

private:
    struct State;
    std::unique_ptr<State> state_;
};
