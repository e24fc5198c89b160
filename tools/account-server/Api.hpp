#pragma once

#include "tools/account-server/Faults.hpp"
#include "tools/account-server/Http.hpp"
#include "tools/account-server/Mailer.hpp"
#include "tools/account-server/Routes.hpp"

#include <boost/asio/awaitable.hpp>

#include <cstdint>
#include <map>
#include <string>

namespace accountserver
{

/// The life of one request of the account API: count it, let a fault have its way with it, carry
/// the operation out, send the mail. Used on the server's thread.
class Api
{
public:
    Api(Routes& routes, Faults& faults, Mailer& mailer)
        : routes_(routes), faults_(faults), mailer_(mailer)
    {}

    boost::asio::awaitable<Outcome> handle(Request request);

    /// Requests by path since the last reset; unknown paths are counted together.
    std::map<std::string, std::uint64_t> requests;

private:
    boost::asio::awaitable<Response> carryOut(Request request, TokenFault fault);

    Routes& routes_;
    Faults& faults_;
    Mailer& mailer_;
};

}  // namespace accountserver
