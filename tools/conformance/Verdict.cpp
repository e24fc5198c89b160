#include "tools/conformance/Verdict.hpp"

#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/Text.hpp"

#include <boost/algorithm/hex.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/string.hpp>

#include <stdexcept>

namespace conformance
{
namespace
{

constexpr std::size_t longestText = 60;

/// A single user-perceived character may be of any length, hence the limit in bytes beside it.
std::string shortened(std::string_view bytes, std::size_t characters = longestText)
{
    const auto start = bytes.substr(0, 4 * characters);
    auto text = platform::abbreviated(platform::repairedUTF8(start), characters);
    if (start.size() < bytes.size() && !text.ends_with("…"))
        text += "…";
    return text;
}

}  // namespace

Verdict Verdict::failed(std::string_view expected, std::string_view found)
{
    constexpr std::size_t longest = 4 * longestText;
    return {Outcome::failed, shortened(expected, longest), shortened(found, longest)};
}

Verdict Verdict::passedIf(bool condition, std::string_view expected, std::string_view found)
{
    return condition ? passed() : failed(expected, found);
}

std::string shown(std::string_view bytes)
{
    return boost::json::serialize(boost::json::string(shortened(bytes)));
}

std::string shownAsHex(std::string_view bytes)
{
    std::string hex;
    boost::algorithm::hex_lower(bytes.substr(0, longestText), std::back_inserter(hex));
    return bytes.size() > longestText ? hex + "…" : hex;
}

std::string bytesFromHex(std::string_view hex)
{
    std::string bytes;
    boost::algorithm::unhex(hex, std::back_inserter(bytes));
    return bytes;
}

std::string bytesFromBase64(std::string_view base64)
{
    const auto bytes = platform::decodeBase64(base64);
    if (!bytes)
        throw std::invalid_argument("the data file holds a text that is not base64");
    return {reinterpret_cast<const char*>(bytes->data()), bytes->size()};
}

}  // namespace conformance
