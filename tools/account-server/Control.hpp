#pragma once

#include "tools/account-server/Accounts.hpp"
#include "tools/account-server/Api.hpp"
#include "tools/account-server/Connection.hpp"
#include "tools/account-server/Faults.hpp"

#include <boost/asio/awaitable.hpp>

namespace accountserver
{

/// The control interface: what tests and scripts do to the server behind its clients' backs.
///
/// Plain HTTP with JSON on loopback. A page in a browser must not reach it: a request needs the
/// header X-Control, which a page of another origin cannot send unasked, a loopback Host, and no
/// Origin. Used on the server's thread.
class Control
{
public:
    struct Subjects
    {
        Store& store;
        Accounts& accounts;
        ServerClock& clock;
        Faults& faults;
        Api& api;
        Service& service;
    };

    explicit Control(Subjects subjects) : subjects_(subjects) {}

    boost::asio::awaitable<Outcome> handle(Request request);

private:
    Response answer(const Request& request);
    Response makeAnonymousAccount();
    Response moveClock(const Request& request);
    Response publishTerms(const Request& request);
    Response changeSessions(const Request& request, bool revoke);
    Response listRequests() const;

    Subjects subjects_;
};

}  // namespace accountserver
