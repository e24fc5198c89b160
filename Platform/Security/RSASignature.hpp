#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace platform
{

enum class HashFunction
{
    sha256,
    sha384,
    sha512
};

/// Verifies RSASSA-PKCS1-v1_5 signatures (RFC 8017, 8.2) with one key and one hash function.
///
/// Importing a key costs twenty times a verification, so a verifier is made once and kept. It is
/// not for concurrent use: one thread at a time. It throws nothing of its own and leaves the error
/// queue of OpenSSL, which the host may be using, as it found it.
class RSASignatureVerifier
{
public:
    /// Imports a DER-encoded RSAPublicKey (RFC 8017, A.1.1). Nothing when the bytes are anything
    /// else, or when bytes follow the key.
    static std::optional<RSASignatureVerifier> fromPKCS1(std::span<const std::byte> der,
                                                         HashFunction hash);

    RSASignatureVerifier(RSASignatureVerifier&&) noexcept;
    RSASignatureVerifier& operator=(RSASignatureVerifier&&) noexcept;
    ~RSASignatureVerifier();

    /// Whether `signature` is the key's signature of `message`.
    bool verify(std::string_view message, std::span<const std::byte> signature);

private:
    struct State;
    explicit RSASignatureVerifier(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

}  // namespace platform
