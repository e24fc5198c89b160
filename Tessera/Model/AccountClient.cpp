#include "Tessera/Model/AccountClient.hpp"

#include "Platform/Coding/Text.hpp"
#include "Tessera/Model/AccountAPIVersion.hpp"

namespace tessera
{

std::string AccountClient::audience() const
{
    const char* platformWord = "mac";
    if (device.model.starts_with("iPhone"))
        platformWord = "iphone";
    else if (device.model.starts_with("iPad"))
        platformWord = "ipad";
    return identifier + "." + platformWord;
}

std::string AccountClient::userAgent(AccountEnvironment::Distribution distribution) const
{
    std::string text = platform::capitalized(identifier);
    text += "/" + version;
    text += userAgentString(releaseChannel);
    text += " Account/";
    text += platform::rawValue(AccountAPIVersion::rhubarb);
    text += " (" + device.userAgentString() + "; ";
    text += platform::rawValue(distribution);
    text += ")";
    return text;
}

}  // namespace tessera
