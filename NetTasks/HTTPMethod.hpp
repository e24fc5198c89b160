#pragma once

#include "Platform/Coding/JSONDescribed.hpp"

#include <boost/describe/enum.hpp>

#include <string>

namespace nettasks
{

/// The methods of HTTP. `platform::rawValue` gives the lower-case word ("post"), and JSON holds the
/// same; a request carries it in upper case, see `httpMethodName`.
enum class HTTPMethod
{
    get,
    query,
    post,
    put,
    patch,
    delete_
};
BOOST_DESCRIBE_ENUM(HTTPMethod, get, query, post, put, patch, delete_)

/// The method as it stands on the wire: "POST".
inline std::string httpMethodName(HTTPMethod method)
{
    std::string name(platform::rawValue(method));
    for (char& letter : name)
        letter = static_cast<char>(letter - 'a' + 'A');
    return name;
}

}  // namespace nettasks
