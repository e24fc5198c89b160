#include "benchmarks/BareVerification.hpp"

#include "Platform/Coding/Base64.hpp"

#include <array>
#include <stdexcept>

#include <openssl/decoder.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

struct BareVerification::State
{
    EVP_MD* digest = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    EVP_MD_CTX* hashing = EVP_MD_CTX_new();
    EVP_PKEY_CTX* verifying = nullptr;
};

namespace
{

EVP_PKEY* keyOf(std::string_view pem)
{
    EVP_PKEY* key = nullptr;
    OSSL_DECODER_CTX* const decoder = OSSL_DECODER_CTX_new_for_pkey(
        &key, "PEM", nullptr, "RSA", EVP_PKEY_PUBLIC_KEY, nullptr, nullptr);
    const auto* bytes = reinterpret_cast<const unsigned char*>(pem.data());
    auto size = pem.size();
    OSSL_DECODER_from_data(decoder, &bytes, &size);
    OSSL_DECODER_CTX_free(decoder);
    return key;
}

}  // namespace

BareVerification::BareVerification(std::string_view token, std::string_view publicKey)
    : state_(std::make_unique<State>()), message_(token.substr(0, token.rfind('.')))
{
    const auto signature = platform::decodeBase64URL(token.substr(message_.size() + 1)).value();
    const auto* bytes = reinterpret_cast<const unsigned char*>(signature.data());
    signature_.assign(bytes, bytes + signature.size());

    EVP_PKEY* const key = keyOf(publicKey);
    state_->verifying = EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr);
    EVP_PKEY_free(key);
    EVP_PKEY_CTX* const context = state_->verifying;
    const bool ready = context && EVP_PKEY_verify_init(context) > 0 &&
                       EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) > 0 &&
                       EVP_PKEY_CTX_set_signature_md(context, state_->digest) > 0;
    if (!ready || !verify())
        throw std::runtime_error("The bare verification does not verify");
}

BareVerification::~BareVerification()
{
    EVP_PKEY_CTX_free(state_->verifying);
    EVP_MD_CTX_free(state_->hashing);
    EVP_MD_free(state_->digest);
}

bool BareVerification::verify()
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash;
    unsigned int size = 0;
    return EVP_DigestInit_ex2(state_->hashing, state_->digest, nullptr) > 0 &&
           EVP_DigestUpdate(state_->hashing, message_.data(), message_.size()) > 0 &&
           EVP_DigestFinal_ex(state_->hashing, hash.data(), &size) > 0 &&
           EVP_PKEY_verify(state_->verifying, signature_.data(), signature_.size(), hash.data(),
                           size) == 1;
}
