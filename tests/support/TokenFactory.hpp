#pragma once

#include "tests/support/TestKey.hpp"

#include "Tessera/Tokens/JWTPublicKey.hpp"

#include <span>
#include <string>
#include <string_view>

/// Makes tokens as a server would.
class TokenFactory
{
public:
    explicit TokenFactory(
        tessera::JWTPublicKeyAlgorithm algorithm = tessera::JWTPublicKeyAlgorithm::RS256)
        : algorithm_(algorithm)
    {}

    tessera::JWTPublicKey publicKey() const { return {algorithm_, key_.publicPEM()}; }

    /// A token of the factory's algorithm with this payload.
    std::string token(std::string_view payload) const;

    /// The signature is right for the factory's algorithm, whatever the header says.
    std::string token(std::string_view header, std::string_view payload) const;

private:
    TestKey key_;
    tessera::JWTPublicKeyAlgorithm algorithm_;
};

/// The parts of a token without any signature: "header.payload".
std::string unsignedToken(std::string_view header, std::string_view payload);

inline std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}
