#include "tools/account-server/Environment.hpp"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace accountserver
{
namespace json = boost::json;

std::string environmentText(const std::string& name, std::uint16_t port, const Tokens& tokens,
                            const Authority& authority)
{
    const auto address = serverAddress(port);
    const json::object environment = {
        {"distribution", "Direct"},
        {"server", "local"},
        {"localizedName", name},
        {"localizedKeychainIdentifier", name},
        {"jwtPublicKey",
         {{"algorithm", text(tokens.algorithm())}, {"value", tokens.publicKeyText()}}},
        {"endpointURL", address},
        {"accountURL", address + "account/"},
        {"marketingURL", address},
        {"authority", authority.certificateText()},
    };
    return json::serialize(environment) + "\n";
}

std::string serverAddress(std::uint16_t port)
{
    return "https://localhost:" + std::to_string(port) + "/";
}

}  // namespace accountserver
