#pragma once

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Tessera/Tokens/JWT.hpp"
#include "Tessera/Tokens/JWTError.hpp"
#include "Tessera/Tokens/JWTPublicKey.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace tessera
{

/// Where the parts of a token go while it is decoded; what a subclass of `JWTDecoder` fills when it
/// decodes in another way.
class JWTParts
{
public:
    virtual ~JWTParts() = default;

    /// Decodes and keeps the header; returns its algorithm name, valid as long as this object.
    virtual std::string_view decodeHeader(const platform::JSONDecoder& decoder,
                                          std::span<const std::byte> json) = 0;
    virtual void decodePayload(const platform::JSONDecoder& decoder,
                               std::span<const std::byte> json) = 0;

    platform::SecretBytes signature;
    platform::SecretString string;
};

/// Turns the compact text of a token (RFC 7515, 7.1) into a `JWT`, after confirming its signature.
///
/// It checks the form, the algorithm and the signature, and nothing else: not the issue time, not
/// the audience. A fresh decoder reads dates as seconds since 1970 and verifies nothing; set
/// `signatureVerificationStrategy` before trusting a token.
///
/// Throws `JWTError`, and `platform::DecodingError` for faults in the JSON of header or payload; a
/// failed call leaves the decoder as it was. Not for concurrent use: one thread at a time.
class JWTDecoder
{
public:
    JWTDecoder();
    virtual ~JWTDecoder();
    JWTDecoder(const JWTDecoder&) = delete;
    JWTDecoder& operator=(const JWTDecoder&) = delete;

    /// Decodes header and payload; may be changed.
    platform::JSONDecoder decoder;

    const JWTSignatureVerificationStrategy& signatureVerificationStrategy() const noexcept
    {
        return strategy_;
    }
    /// The key is imported at once, and kept until a strategy is set again. One that is no key is
    /// told at the next token.
    void setSignatureVerificationStrategy(JWTSignatureVerificationStrategy strategy);

    /// Decodes a token with the given header and payload types from its UTF-8 bytes.
    template <class Header, class Payload>
        requires JWTHeaderProtocol<Header>
    JWT<Header, Payload> decode(std::span<const std::byte> token)
    {
        TypedParts<Header, Payload> parts;
        decodeParts(token, parts);
        if (!parts.header || !parts.payload)
            platform::fatal("JWTDecoder::decodeParts left the header or the payload undecoded");
        return {std::move(*parts.header), std::move(*parts.payload), std::move(parts.signature),
                std::move(parts.string)};
    }

    template <class Payload>
    JWT<JWTHeader, Payload> decode(std::span<const std::byte> token)
    {
        return decode<JWTHeader, Payload>(token);
    }

protected:
    /// The general form of `decode`, for all types at once; a subclass may override it.
    virtual void decodeParts(std::span<const std::byte> token, JWTParts& parts);

private:
    template <class Header, class Payload>
    struct TypedParts final : JWTParts
    {
        std::string_view decodeHeader(const platform::JSONDecoder& json,
                                      std::span<const std::byte> bytes) override
        {
            header = json.decode<Header>(bytes);
            return header->alg;
        }
        void decodePayload(const platform::JSONDecoder& json,
                           std::span<const std::byte> bytes) override
        {
            payload = json.decode<Payload>(bytes);
        }

        std::optional<Header> header;
        std::optional<Payload> payload;
    };

    struct PreparedKey;

    void verify(std::string_view algorithm, std::string_view message,
                std::span<const std::byte> signature);

    JWTSignatureVerificationStrategy strategy_ = JWTVerifyNone();
    std::unique_ptr<PreparedKey> prepared_;
};

}  // namespace tessera
