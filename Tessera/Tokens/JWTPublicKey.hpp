#pragma once

#include "Platform/Coding/JSONDescribed.hpp"

#include <boost/container_hash/hash.hpp>
#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

#include <string>
#include <variant>

namespace tessera
{

/// RSA PKCS #1 v1.5 signatures with SHA-256, SHA-384 and SHA-512 (RFC 7518, 3.3). The names in
/// tokens and in JSON are those of the cases; `platform::rawValue` and `platform::fromRawValue`
/// convert.
enum class JWTPublicKeyAlgorithm
{
    RS256,
    RS384,
    RS512
};
BOOST_DESCRIBE_ENUM(JWTPublicKeyAlgorithm, RS256, RS384, RS512)

/// A server's public key. `value` is a PKCS #1 PEM text: "-----BEGIN RSA PUBLIC KEY-----", base64
/// in lines of at most 64 characters, "-----END RSA PUBLIC KEY-----", with single line feeds.
struct JWTPublicKey
{
    JWTPublicKeyAlgorithm algorithm = JWTPublicKeyAlgorithm::RS256;
    std::string value;

    bool operator==(const JWTPublicKey&) const = default;
};

BOOST_DESCRIBE_STRUCT(JWTPublicKey, (), (algorithm, value))

/// Accept every signature, and every algorithm: for looking into a token, never for trusting it.
struct JWTVerifyNone
{
    bool operator==(const JWTVerifyNone&) const = default;
};

/// How a decoder treats signatures: confirm them with a key, or `JWTVerifyNone`.
using JWTSignatureVerificationStrategy = std::variant<JWTPublicKey, JWTVerifyNone>;

}  // namespace tessera
