#include "tools/account-server/Routes.hpp"

#include "tools/account-server/Refusal.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <algorithm>
#include <array>

namespace accountserver
{
namespace json = boost::json;

namespace
{

constexpr std::string_view tokenType = "application/jwt";

enum class Operation
{
    requestCode,
    signIn,
    signOut,
    info,
    deleteAccount,
    newsletter,
    consent,
    startPage,
    accountPage,
};

enum class Bearer
{
    none,
    optional,
    required,
};

struct Route
{
    std::string_view method;
    std::string_view path;
    Operation operation;
    Bearer bearer;
    bool hasBody;
    bool answersToken;
};

constexpr std::array routes = {
    Route{"POST", "/v2/auth/one-time-code", Operation::requestCode, Bearer::none, true, false},
    Route{"POST", "/v2/auth", Operation::signIn, Bearer::optional, true, true},
    Route{"DELETE", "/v2/auth", Operation::signOut, Bearer::required, false, false},
    Route{"GET", "/v2/account", Operation::info, Bearer::required, false, true},
    Route{"DELETE", "/v2/account", Operation::deleteAccount, Bearer::required, false, false},
    Route{"POST", "/v2/account/newsletter", Operation::newsletter, Bearer::required, false, false},
    Route{"POST", "/v2/legal/terms/consent", Operation::consent, Bearer::required, true, false},
    Route{"GET", "/", Operation::startPage, Bearer::none, false, false},
    Route{"GET", "/account/", Operation::accountPage, Bearer::none, false, false},
};

const Route& routeOf(const Request& request)
{
    std::string allowed;
    for (const auto& route : routes)
    {
        if (route.path != request.path)
            continue;
        if (route.method == request.method)
            return route;
        allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
    }
    if (allowed.empty())
        throw Refusal(404, "not_found", "There is nothing at this path.");
    Refusal refusal(405, "method_not_allowed", "This path takes " + allowed + ".");
    refusal.headers.emplace_back("Allow", allowed);
    throw refusal;
}

/// The media type alone, in lower case, without parameters and space.
std::string mediaType(std::string_view header)
{
    auto type = comparable(std::string(header.substr(0, header.find(';'))));
    std::erase_if(type, [](char c) { return c == ' ' || c == '\t'; });
    return type;
}

void checkAccept(std::string_view header)
{
    bool accepted = header.empty();
    while (!header.empty() && !accepted)
    {
        const auto type = mediaType(header.substr(0, header.find(',')));
        accepted = type == tokenType || type == "*/*" || type == "application/*";
        const auto comma = header.find(',');
        header.remove_prefix(comma == std::string_view::npos ? header.size() : comma + 1);
    }
    if (!accepted)
        throw Refusal(406, "not_acceptable", "The answer is application/jwt.");
}

json::object parseBody(const Request& request)
{
    if (mediaType(request.header("content-type")) != "application/json")
        throw Refusal(415, "unsupported_media_type", "The body must be application/json.");
    boost::system::error_code error;
    auto value = json::parse(request.body, error);
    if (error)
        throw Refusal(400, "malformed_json", "The body is not JSON.");
    if (!value.is_object())
        throw Refusal(400, "invalid_request", "The body must be a JSON object.");
    return std::move(value).as_object();
}

std::string textIn(const json::object& body, std::string_view name)
{
    const auto* value = body.if_contains(name);
    if (value == nullptr || !value->is_string())
        throw Refusal(400, "invalid_request",
                      "The body must have a text \"" + std::string(name) + "\".");
    return std::string(value->get_string());
}

std::optional<Session> sessionOf(const Request& request, const Accounts& accounts)
{
    const auto header = request.header("authorization");
    if (header.empty())
        return std::nullopt;
    constexpr std::string_view scheme = "bearer ";
    if (comparable(std::string(header.substr(0, scheme.size()))) != scheme)
        throw Refusal(401, "unauthorized", "Authorization must be a bearer token.");
    return accounts.session(std::string(header.substr(scheme.size())));
}

Response tokenResponse(std::string token, TokenFault fault)
{
    if (fault == TokenFault::wrongSignature)
        token = withWrongSignature(std::move(token));
    return {200, std::string(tokenType), std::move(token), {}};
}

Response page(std::string_view title)
{
    const std::string name(title);
    return {200,
            "text/html; charset=utf-8",
            "<!doctype html><title>" + name + "</title><h1>" + name +
                "</h1><p>This is the account server for development.</p>\n",
            {}};
}

}  // namespace

Routes::Answer Routes::handle(const Request& request, TokenFault fault)
{
    try
    {
        return carryOut(request, fault);
    }
    catch (const Refusal& refusal)
    {
        auto response = errorResponse(refusal.status(), refusal.code(), refusal.what());
        response.headers = refusal.headers;
        if (refusal.status() == 401)
            response.headers.emplace_back("WWW-Authenticate", "Bearer");
        return {std::move(response), std::nullopt};
    }
}

Routes::Answer Routes::carryOut(const Request& request, TokenFault fault)
{
    const auto& route = routeOf(request);
    if (route.operation == Operation::startPage)
        return {page("Account server"), std::nullopt};
    if (route.operation == Operation::accountPage)
        return {page("Account"), std::nullopt};

    const auto audience = clients_.audience(request.header("user-agent"));
    if (route.answersToken)
        checkAccept(request.header("accept"));
    std::optional<Session> session;
    if (route.bearer != Bearer::none)
        session = sessionOf(request, accounts_);
    if (route.bearer == Bearer::required && !session)
        throw Refusal(401, "unauthorized", "This needs the token of a session. Sign in first.");
    const auto body = route.hasBody ? parseBody(request) : json::object();

    switch (route.operation)
    {
        case Operation::requestCode:
            return {{}, accounts_.requestCode(textIn(body, "email"))};
        case Operation::signIn: {
            auto signedIn =
                accounts_.signIn(textIn(body, "email"), textIn(body, "oneTimeCode"), session);
            return {tokenResponse(std::move(signedIn.token), fault), std::nullopt};
        }
        case Operation::info:
            return {tokenResponse(accounts_.info(*session, audience, fault), fault), std::nullopt};
        case Operation::signOut:
            accounts_.signOut(*session);
            break;
        case Operation::deleteAccount:
            accounts_.deleteAccount(*session);
            break;
        case Operation::newsletter:
            accounts_.subscribe(*session);
            break;
        case Operation::consent:
            accounts_.consent(*session, textIn(body, "revision"), textIn(body, "language"));
            break;
        case Operation::startPage:
        case Operation::accountPage:
            break;
    }
    return {};
}

bool Routes::isKnown(const std::string& path)
{
    return std::any_of(routes.begin(), routes.end(),
                       [&](const Route& route) { return route.path == path; });
}

Response errorResponse(int status, const std::string& code, const std::string& message)
{
    return {status,
            "application/json",
            json::serialize(json::object{{"code", code}, {"message", message}}),
            {}};
}

}  // namespace accountserver
