#include "Tessera/Model/AccountDevice.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Services/Services.hpp"

#include <algorithm>
#include <string_view>

namespace tessera
{
namespace
{

/// Printable ASCII without the signs that structure the user agent, and no space at either end.
std::string cleaned(std::string text)
{
    constexpr std::string_view structure = ";()\\";
    std::erase_if(text, [&](unsigned char c)
                  { return c < 0x20 || c > 0x7E || structure.find(char(c)) != structure.npos; });
    const auto first = text.find_first_not_of(' ');
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

AccountDevice AccountDevice::current()
{
    const auto device = platform::services().device;
    if (!device)
        platform::fatal(
            "Tessera/AccountDevice: a service is missing, begin with platform::systemServices()");
    AccountDevice current{cleaned(device->model()), cleaned(device->systemVersion())};
    if (current.model.empty())
        current.model = "Linux";
    return current;
}

std::string AccountDevice::userAgentString() const
{
    return model + "; " + systemVersion;
}

}  // namespace tessera
