#include "tools/account-server/Control.hpp"

#include "tools/account-server/Random.hpp"
#include "tools/account-server/Refusal.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <cmath>

namespace accountserver
{
namespace json = boost::json;

namespace
{

constexpr std::size_t largestBody = 256 * 1024 * 1024;

[[noreturn]] void invalid(const std::string& message)
{
    throw Refusal(400, "invalid_request", message);
}

Response jsonResponse(const json::value& value)
{
    return {200, "application/json", json::serialize(value) + "\n", {}};
}

void guard(const Request& request)
{
    const auto host = request.header("host");
    const auto name = host.substr(0, host.rfind(':'));
    if (name != "127.0.0.1" && name != "localhost")
        throw Refusal(403, "forbidden", "The Host must be 127.0.0.1 or localhost.");
    if (request.header("x-control").empty() || !request.header("origin").empty())
        throw Refusal(403, "forbidden", "Send the header X-Control: 1, and no Origin.");
}

/// The members of a request's body, read strictly: a misspelt one must not pass unnoticed.
class Members
{
public:
    explicit Members(const std::string& body)
    {
        boost::system::error_code error;
        auto value = json::parse(body.empty() ? "{}" : body, error);
        if (error || !value.is_object())
            invalid("The body must be a JSON object.");
        object_ = std::move(value).as_object();
    }

    std::optional<std::string> text(std::string_view name)
    {
        const auto value = take(name);
        if (value && !value->is_string())
            invalid("\"" + std::string(name) + "\" must be a text.");
        return value ? std::optional(std::string(value->get_string())) : std::nullopt;
    }

    std::optional<double> number(std::string_view name, double least, double most)
    {
        const auto value = take(name);
        if (!value)
            return std::nullopt;
        boost::system::error_code error;
        const auto number = value->to_number<double>(error);
        if (error || number < least || number > most)
            invalid("\"" + std::string(name) + "\" must be a number from " +
                    std::to_string(std::llround(least)) + " to " +
                    std::to_string(std::llround(most)) + ".");
        return number;
    }

    std::size_t count(std::string_view name, std::size_t least, std::size_t most,
                      std::size_t otherwise)
    {
        const auto value = number(name, static_cast<double>(least), static_cast<double>(most));
        return value ? static_cast<std::size_t>(*value) : otherwise;
    }

    void end() const
    {
        if (!object_.empty())
            invalid("There is no member \"" + std::string(object_.begin()->key()) + "\" here.");
    }

private:
    std::optional<json::value> take(std::string_view name)
    {
        const auto* value = object_.if_contains(name);
        if (value == nullptr)
            return std::nullopt;
        std::optional<json::value> taken(*value);
        object_.erase(name);
        return taken;
    }

    json::object object_;
};

Response scriptedResponse(Members& members)
{
    Response response;
    response.status = static_cast<int>(members.count("status", 200, 599, 500));
    response.contentType = members.text("contentType").value_or("application/json");
    response.body = members.text("body").value_or("");
    const auto repeat = members.count("repeat", 1, largestBody, 1);
    if (response.body.size() * repeat > largestBody)
        invalid("\"repeat\" makes the body larger than 256 MiB.");
    if (repeat > 1)
    {
        const auto piece = response.body;
        response.body.reserve(piece.size() * repeat);
        for (std::size_t made = 1; made < repeat; ++made)
            response.body += piece;
    }
    return response;
}

Delivery::Framing framingNamed(const std::string& name)
{
    if (name == "length")
        return Delivery::Framing::length;
    if (name == "chunked")
        return Delivery::Framing::chunked;
    if (name == "close")
        return Delivery::Framing::close;
    invalid("\"framing\" must be length, chunked or close.");
}

Delivery::Kind halfNamed(const std::string& name)
{
    if (name == "headers")
        return Delivery::Kind::partOfHeaders;
    if (name == "body")
        return Delivery::Kind::partOfBody;
    invalid("\"in\" must be headers or body.");
}

void readKind(Fault& fault, Members& members)
{
    if (fault.kind == "status")
    {
        fault.response = scriptedResponse(members);
        fault.delivery.framing = framingNamed(members.text("framing").value_or("length"));
    }
    else if (fault.kind == "half")
        fault.delivery.kind = halfNamed(members.text("in").value_or("body"));
    else if (fault.kind == "reset")
    {
        fault.delivery.kind = Delivery::Kind::reset;
        fault.response = Response();
    }
    else if (fault.kind == "drip")
    {
        fault.delivery.kind = Delivery::Kind::drip;
        fault.delivery.pieceSize = members.count("pieceSize", 1, largestBody, 1);
        fault.delivery.interval =
            std::chrono::milliseconds(members.count("interval", 0, 60'000, 100));
    }
    else if (fault.kind == "raw")
    {
        fault.delivery.kind = Delivery::Kind::raw;
        fault.response = Response{200, "", members.text("body").value_or(""), {}};
    }
    else if (fault.kind == "wrongSignature")
        fault.tokens = TokenFault::wrongSignature;
    else if (fault.kind == "otherAudience")
        fault.tokens = TokenFault::otherAudience;
    else if (fault.kind != "delay")
        invalid(
            "\"kind\" must be delay, status, half, reset, drip, raw, wrongSignature or "
            "otherAudience.");
}

Fault faultFrom(const std::string& body)
{
    Members members(body);
    Fault fault;
    fault.path = members.text("path").value_or("*");
    fault.kind = members.text("kind").value_or("");
    fault.delay = std::chrono::milliseconds(members.count("delay", 0, 3'600'000, 0));
    if (const auto count = members.count("count", 1, 1'000'000'000, 0); count > 0)
        fault.remaining = static_cast<int>(count);
    readKind(fault, members);
    members.end();
    return fault;
}

Response listFaults(const Faults& faults)
{
    json::array list;
    for (const auto& fault : faults.all())
    {
        json::object entry = {{"path", fault.path}, {"kind", fault.kind}};
        if (fault.remaining)
            entry["count"] = *fault.remaining;
        if (fault.delay.count() > 0)
            entry["delay"] = fault.delay.count();
        list.push_back(std::move(entry));
    }
    return jsonResponse(json::object{{"faults", std::move(list)}});
}

std::string pathInQuery(const Request& request)
{
    constexpr std::string_view name = "path=";
    return request.query.starts_with(name) ? request.query.substr(name.size()) : "";
}

Response clockResponse(const ServerClock& clock)
{
    return jsonResponse(json::object{{"now", clock.now()}, {"offset", clock.offset()}});
}

}  // namespace

boost::asio::awaitable<Outcome> Control::handle(Request request)
{
    Outcome outcome;
    try
    {
        outcome.response = answer(request);
    }
    catch (const Refusal& refusal)
    {
        outcome.response = errorResponse(refusal.status(), refusal.code(), refusal.what());
    }
    catch (const std::exception& error)
    {
        outcome.response = errorResponse(500, "internal_error", error.what());
    }
    co_return outcome;
}

Response Control::answer(const Request& request)
{
    guard(request);
    const auto what = request.method + " " + request.path;
    if (what == "POST /anonymous-accounts")
        return makeAnonymousAccount();
    if (what == "GET /clock")
        return clockResponse(subjects_.clock);
    if (what == "POST /clock")
        return moveClock(request);
    if (what == "GET /terms")
        return jsonResponse(json::object{{"revision", subjects_.store.currentTerms()}});
    if (what == "POST /terms")
        return publishTerms(request);
    if (what == "POST /sessions/revoke")
        return changeSessions(request, true);
    if (what == "POST /sessions/age")
        return changeSessions(request, false);
    if (what == "GET /faults")
        return listFaults(subjects_.faults);
    if (what == "POST /faults")
    {
        subjects_.faults.add(faultFrom(request.body));
        return {};
    }
    if (what == "DELETE /faults")
        return jsonResponse(
            json::object{{"cleared", subjects_.faults.clear(pathInQuery(request))}});
    if (what == "GET /requests")
        return listRequests();
    if (what == "DELETE /requests")
    {
        subjects_.api.requests.clear();
        subjects_.service.accepted = 0;
        return {};
    }
    throw Refusal(404, "not_found", "The control interface has no " + what + ".");
}

Response Control::makeAnonymousAccount()
{
    const auto signedIn = subjects_.accounts.signInAnonymously();
    const auto& account = signedIn.session.account;
    return jsonResponse(json::object{{"token", signedIn.token},
                                     {"user", account.user},
                                     {"uuid", account.uuid},
                                     {"session", signedIn.session.id}});
}

Response Control::moveClock(const Request& request)
{
    constexpr double longest = 1e10;
    Members members(request.body);
    const auto advance = members.number("advance", -longest, longest);
    const auto set = members.number("set", 0, longest);
    const auto offset = members.number("offset", -longest, longest);
    members.end();
    auto& clock = subjects_.clock;
    if (advance.has_value() + set.has_value() + offset.has_value() != 1)
        invalid("Give one of \"advance\", \"set\" and \"offset\", in seconds.");
    if (advance)
        clock.setOffset(clock.offset() + *advance);
    else if (set)
        clock.setOffset(clock.offset() + *set - clock.now());
    else
        clock.setOffset(*offset);
    return clockResponse(clock);
}

Response Control::publishTerms(const Request& request)
{
    Members members(request.body);
    const auto revision = members.text("revision").value_or("");
    members.end();
    if (revision.empty())
        invalid("Give a \"revision\" that is not empty.");
    if (!subjects_.accounts.publishTerms(revision))
        throw Refusal(409, "already_published", "This revision was published before.");
    return jsonResponse(json::object{{"revision", revision}});
}

Response Control::changeSessions(const Request& request, bool revoke)
{
    Members members(request.body);
    const auto user = members.text("user");
    const auto session = members.text("session");
    const auto token = members.text("token");
    const auto seconds = revoke ? std::optional(0.0) : members.number("seconds", 0, 1e10);
    members.end();
    if (user.has_value() + session.has_value() + token.has_value() != 1 || !seconds)
        invalid("Give one of \"user\", \"session\" and \"token\", and \"seconds\" to age.");
    auto& store = subjects_.store;
    auto id = session.value_or("");
    if (token)
    {
        const auto found = store.sessionWithToken(digestOf(*token));
        id = found ? found->id : "";
    }
    const auto account = user.value_or("");
    const int changed =
        revoke ? store.removeSessions(id, account) : store.ageSessions(id, account, *seconds);
    return jsonResponse(json::object{{"sessions", changed}});
}

Response Control::listRequests() const
{
    json::object paths;
    std::uint64_t total = 0;
    for (const auto& [path, count] : subjects_.api.requests)
    {
        paths[path] = count;
        total += count;
    }
    return jsonResponse(json::object{{"total", total},
                                     {"paths", std::move(paths)},
                                     {"connections", subjects_.service.accepted},
                                     {"openConnections", subjects_.service.open.size()}});
}

}  // namespace accountserver
