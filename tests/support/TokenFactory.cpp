#include "tests/support/TokenFactory.hpp"

#include "Platform/Coding/Base64.hpp"

std::string unsignedToken(std::string_view header, std::string_view payload)
{
    return platform::encodeBase64URL(bytesOf(header)) + "." +
           platform::encodeBase64URL(bytesOf(payload));
}

std::string TokenFactory::token(std::string_view payload) const
{
    const auto header =
        "{\"alg\":\"" + std::string(platform::rawValue(algorithm_)) + "\",\"typ\":\"JWT\"}";
    return token(header, payload);
}

std::string TokenFactory::token(std::string_view header, std::string_view payload) const
{
    const auto message = unsignedToken(header, payload);
    const auto hash = static_cast<platform::HashFunction>(algorithm_);
    return message + "." + platform::encodeBase64URL(key_.sign(message, hash));
}
