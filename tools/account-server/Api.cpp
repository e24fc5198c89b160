#include "tools/account-server/Api.hpp"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <cstdio>

namespace accountserver
{
namespace asio = boost::asio;

asio::awaitable<Outcome> Api::handle(Request request)
{
    ++requests[Routes::isKnown(request.path) ? request.path : "other"];
    const auto fault = faults_.take(request.path).value_or(Fault());
    if (fault.delay.count() > 0)
    {
        const auto executor = co_await asio::this_coro::executor;
        asio::steady_timer timer(executor, fault.delay);
        co_await timer.async_wait(asio::as_tuple(asio::use_awaitable));
    }
    Outcome outcome{{}, fault.delivery};
    if (fault.response)
        outcome.response = *fault.response;
    else
        outcome.response = co_await carryOut(std::move(request), fault.tokens);
    co_return outcome;
}

asio::awaitable<Response> Api::carryOut(Request request, TokenFault fault)
{
    try
    {
        auto answer = routes_.handle(request, fault);
        bool sent = true;
        if (answer.mail)
            sent = co_await mailer_.deliver(*std::move(answer.mail));
        if (!sent)
            co_return errorResponse(502, "mail_failed", "The code could not be mailed. Try again.");
        co_return std::move(answer.response);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
    }
    co_return errorResponse(500, "internal_error", "The server failed. Look at its error output.");
}

}  // namespace accountserver
