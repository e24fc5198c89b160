#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <utility>

/// The servers that the requests go to: processes of their own, so that only the client's time
/// counts. `scripts/bench` starts them and names them on the command line.
struct Server
{
    /// "https://localhost:PORT"; empty when there is no server.
    std::string origin;

    /// One that gives no TLS session tickets, so that each of its connections needs the whole
    /// handshake; it closes each after one answer.
    std::string originWithoutTickets;

    /// The certificate that signs for them, as PEM.
    std::string authority;

    /// The state folder of a server that answers as it is, for sessions: there lies the
    /// environment file.
    std::string state;

    /// How long the body of every answer is: about as long as a signed account information.
    static constexpr std::size_t bodySize = 900;

    /// Answered with such a body; the connection is kept.
    std::string keptAlive() const { return origin + "/v2/account"; }

    /// Answered with such a body, after which the server closes the connection.
    static constexpr const char* closingPath = "/v2/auth";
};

/// Filled by `main` before the benchmarks run.
inline Server& server()
{
    static Server instance;
    return instance;
}

/// The headers of every request, whoever sends it: those of an account request, with a token of the
/// usual length.
inline const auto& requestHeaders()
{
    using Header = std::pair<std::string, std::string>;
    static const std::array<Header, 5> headers{
        Header{"Content-Type", "application/json"},
        Header{"User-Agent", "Benchmark/1.0 Account/2026-10-17-rhubarb (Mac14,2; 12.0.0; Direct)"},
        Header{"Accept-Language", "en-GB;q=1.0, de-DE;q=0.8"},
        Header{"Accept", "application/jwt"},
        Header{"Authorization", "Bearer " + std::string(560, 'x')},
    };
    return headers;
}
