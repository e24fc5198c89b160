#pragma once

#include "tools/account-server/Accounts.hpp"
#include "tools/account-server/Clients.hpp"
#include "tools/account-server/Http.hpp"

#include <optional>
#include <string>

namespace accountserver
{

/// The account API over HTTP: finds the operation, checks headers and body in a fixed order, and
/// turns results and refusals into answers. Used on one thread; throws what `Store` throws.
class Routes
{
public:
    Routes(Accounts& accounts, Clients clients) : accounts_(accounts), clients_(std::move(clients))
    {}

    struct Answer
    {
        Response response;
        std::optional<Mail> mail;  ///< to be sent before the response
    };
    Answer handle(const Request& request, TokenFault fault);

    static bool isKnown(const std::string& path);

private:
    Answer carryOut(const Request& request, TokenFault fault);

    Accounts& accounts_;
    Clients clients_;
};

/// The error body of the API.
Response errorResponse(int status, const std::string& code, const std::string& message);

}  // namespace accountserver
