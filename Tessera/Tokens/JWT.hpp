#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "Tessera/Tokens/JWTHeader.hpp"

namespace tessera
{

/// A decoded token (RFC 7519). Two are equal when their texts are; the rest follows from the text.
template <class Header, class Payload>
struct JWT
{
    Header header;
    Payload payload;
    platform::SecretBytes signature;
    /// The whole token exactly as it was received: the credential itself.
    platform::SecretString string;

    friend bool operator==(const JWT& left, const JWT& right)
    {
        return left.string == right.string;
    }
    friend std::size_t hash_value(const JWT& token) { return hash_value(token.string); }
};

}  // namespace tessera
