#include "tools/account-server/Clients.hpp"

#include "tools/account-server/Refusal.hpp"

namespace accountserver
{
namespace
{

constexpr std::string_view apiVersion = "2026-10-17-rhubarb";

struct UserAgent
{
    std::string_view name;
    std::string_view api;
    std::string_view model;
};

[[noreturn]] void unreadable()
{
    throw Refusal(400, "unreadable_user_agent",
                  "The user agent must read Name/version Account/api (model; system; Direct).");
}

/// Splits `text` at the separator; what stands before it is returned, what follows stays.
std::string_view takeUntil(std::string_view& text, std::string_view separator)
{
    const auto place = text.find(separator);
    if (place == std::string_view::npos || place == 0)
        unreadable();
    const auto taken = text.substr(0, place);
    text.remove_prefix(place + separator.size());
    return taken;
}

/// From the end: what follows the last separator is returned, what stands before it stays.
std::string_view takeLast(std::string_view& text, std::string_view separator)
{
    const auto place = text.rfind(separator);
    if (place == std::string_view::npos)
        unreadable();
    const auto taken = text.substr(place + separator.size());
    text = text.substr(0, place);
    return taken;
}

UserAgent parse(std::string_view text)
{
    UserAgent agent;
    auto program = takeUntil(text, " Account/");
    agent.name = takeUntil(program, "/");
    agent.api = takeUntil(text, " (");
    if (program.empty() || !text.ends_with(')'))
        unreadable();
    text.remove_suffix(1);
    // From the end, because the model is free text of the machine's maker.
    const auto distribution = takeLast(text, "; ");
    if (distribution != "Direct" && distribution != "Apple")
        unreadable();
    takeLast(text, "; ");
    agent.model = text;
    return agent;
}

std::string_view kindOfDevice(std::string_view model)
{
    if (model.starts_with("iPhone"))
        return "iphone";
    return model.starts_with("iPad") ? "ipad" : "mac";
}

}  // namespace

std::string Clients::audience(std::string_view userAgent) const
{
    const auto agent = parse(userAgent);
    if (agent.api != apiVersion)
        throw Refusal(400, "unknown_api_version",
                      "This server speaks version " + std::string(apiVersion) + " alone.");
    const auto found = identifiers_.find(std::string(agent.name));
    if (found == identifiers_.end())
        throw Refusal(400, "unknown_client",
                      "The program is not registered. Start the server with --client "
                      "Name=identifier.");
    return found->second + "." + std::string(kindOfDevice(agent.model));
}

}  // namespace accountserver
