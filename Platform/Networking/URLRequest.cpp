#include "Platform/Networking/URLRequest.hpp"

#include "Platform/Networking/HeaderName.hpp"

#include <algorithm>

namespace platform
{

void URLRequest::setHeader(std::string_view name, std::string_view value)
{
    const auto isNamed = [name](const HTTPHeader& header) { return sameName(header.name, name); };
    const auto first = std::ranges::find_if(headers, isNamed);
    if (first == headers.end())
    {
        headers.push_back({std::string(name), SecretString(value)});
        return;
    }
    first->value = SecretString(value);
    headers.erase(std::remove_if(first + 1, headers.end(), isNamed), headers.end());
}

void URLRequest::addHeader(std::string_view name, SecretString value)
{
    headers.push_back({std::string(name), std::move(value)});
}

const HTTPHeader* URLRequest::header(std::string_view name) const
{
    const auto found = std::ranges::find_if(
        headers, [name](const HTTPHeader& header) { return sameName(header.name, name); });
    return found == headers.end() ? nullptr : &*found;
}

}  // namespace platform
