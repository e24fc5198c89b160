#pragma once

#include <memory>
#include <string_view>
#include <vector>

/// The least that checking a token's signature can cost: SHA-256 over the message and
/// `EVP_PKEY_verify`, with everything that does not depend on the message made beforehand.
class BareVerification
{
public:
    /// `token` must outlive it; `publicKey` is PEM, a PKCS #1 key or one with its algorithm.
    BareVerification(std::string_view token, std::string_view publicKey);
    ~BareVerification();

    bool verify();

private:
    struct State;
    std::unique_ptr<State> state_;
    std::string_view message_;
    std::vector<unsigned char> signature_;
};
