#include "Tessera/Tokens/JWTDecoder.hpp"

#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Security/RSASignature.hpp"

#include <array>
#include <string>

namespace tessera
{
namespace
{

/// The three parts of a compact token, views into its text.
struct Components
{
    std::string_view header;
    std::string_view payload;
    std::string_view signature;
    /// Header, dot and payload as they stand: what was signed.
    std::string_view message;
};

Components split(std::string_view token)
{
    const auto first = token.find('.');
    const auto second = first == token.npos ? token.npos : token.find('.', first + 1);
    if (second == token.npos || token.find('.', second + 1) != token.npos)
        throw JWTError(JWTError::malformedToken);
    return {token.substr(0, first), token.substr(first + 1, second - first - 1),
            token.substr(second + 1), token.substr(0, second)};
}

platform::SecretBytes decodedComponent(std::string_view text)
{
    platform::SecretBytes bytes;
    bytes.resize(platform::base64DecodedCapacity(text.size()));
    const auto size = platform::decodeBase64URL(text, bytes.mutableView());
    if (!size)
        throw JWTError(JWTError::malformedToken);
    bytes.resize(*size);
    return bytes;
}

void removeAll(std::string& text, std::string_view part)
{
    for (auto at = text.find(part); at != text.npos; at = text.find(part, at))
        text.erase(at, part.size());
}

platform::HashFunction hashOf(JWTPublicKeyAlgorithm algorithm)
{
    constexpr std::array hashes{platform::HashFunction::sha256, platform::HashFunction::sha384,
                                platform::HashFunction::sha512};
    return hashes[static_cast<std::size_t>(algorithm)];
}

std::optional<platform::RSASignatureVerifier> importKey(const JWTPublicKey& key)
{
    std::string body = key.value;
    removeAll(body, "-----BEGIN RSA PUBLIC KEY-----");
    removeAll(body, "-----END RSA PUBLIC KEY-----");
    removeAll(body, "\n");
    const auto der = platform::decodeBase64(body);
    if (!der)
        return std::nullopt;
    return platform::RSASignatureVerifier::fromPKCS1(*der, hashOf(key.algorithm));
}

}  // namespace

/// A key that was imported once; no verifier when it is no key.
struct JWTDecoder::PreparedKey
{
    std::string_view algorithm;
    std::optional<platform::RSASignatureVerifier> verifier;
};

JWTDecoder::JWTDecoder() = default;
JWTDecoder::~JWTDecoder() = default;

void JWTDecoder::setSignatureVerificationStrategy(JWTSignatureVerificationStrategy strategy)
{
    strategy_ = std::move(strategy);
    prepared_.reset();
    if (const auto* key = std::get_if<JWTPublicKey>(&strategy_))
        prepared_ =
            std::make_unique<PreparedKey>(platform::rawValue(key->algorithm), importKey(*key));
}

void JWTDecoder::decodeParts(std::span<const std::byte> token, JWTParts& parts)
{
    const std::string_view received(reinterpret_cast<const char*>(token.data()), token.size());
    parts.string.reserve(received.size());
    platform::appendRepairedUTF8(received, parts.string);

    const auto components = split(parts.string.view());
    const auto header = decodedComponent(components.header);
    const auto payload = decodedComponent(components.payload);
    parts.signature = decodedComponent(components.signature);

    const auto algorithm = parts.decodeHeader(decoder, header.view());
    if (std::holds_alternative<JWTPublicKey>(strategy_))
        verify(algorithm, components.message, parts.signature.view());
    parts.decodePayload(decoder, payload.view());
}

void JWTDecoder::verify(std::string_view algorithm, std::string_view message,
                        std::span<const std::byte> signature)
{
    const bool confirmed = algorithm == prepared_->algorithm && prepared_->verifier &&
                           prepared_->verifier->verify(message, signature);
    if (!confirmed)
        throw JWTError(JWTError::verificationFailed);
}

}  // namespace tessera
