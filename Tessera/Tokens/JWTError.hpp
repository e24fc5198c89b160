#pragma once

#include "Tessera/Tokens/CaseError.hpp"

namespace tessera
{

enum class JWTErrorCase
{
    /// Not three parts, or a part that is not base64url.
    malformedToken,
    /// Another algorithm than the key's, no usable key, or a signature that does not verify.
    verificationFailed
};

constexpr ErrorText errorText(JWTErrorCase error)
{
    return error == JWTErrorCase::malformedToken
               ? ErrorText{"JWTError.malformedToken", "Malformed_Token_Error"}
               : ErrorText{"JWTError.verificationFailed", "Verification_Error"};
}

/// Why a text is no token, or not one that can be trusted. Faults in the JSON inside a token are
/// `platform::DecodingError` instead.
class JWTError final : public CaseError<JWTErrorCase>
{
public:
    using enum JWTErrorCase;
    using CaseError::CaseError;
};

}  // namespace tessera
