#include "Platform/Security/RSASignature.hpp"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <array>

namespace platform
{
namespace
{

template <auto release>
struct Release
{
    template <class T>
    void operator()(T* object) const
    {
        release(object);
    }
};

using Digest = std::unique_ptr<EVP_MD, Release<EVP_MD_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;

/// Takes away the errors that OpenSSL queues while it lives.
struct QuietErrors
{
    QuietErrors() { ERR_set_mark(); }
    ~QuietErrors() { ERR_pop_to_mark(); }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
};

const char* nameOf(HashFunction hash)
{
    constexpr std::array names{"SHA256", "SHA384", "SHA512"};
    return names[static_cast<std::size_t>(hash)];
}

const unsigned char* bytes(const void* data)
{
    return static_cast<const unsigned char*>(data);
}

Key importKey(std::span<const std::byte> der)
{
    const unsigned char* position = bytes(der.data());
    const unsigned char* const end = position + der.size();
    Key key(d2i_PublicKey(EVP_PKEY_RSA, nullptr, &position, static_cast<long>(der.size())));
    return position == end ? std::move(key) : nullptr;
}

}  // namespace

struct RSASignatureVerifier::State
{
    Digest digest;
    DigestContext hashing;
    KeyContext verifying;
};

std::optional<RSASignatureVerifier> RSASignatureVerifier::fromPKCS1(std::span<const std::byte> der,
                                                                    HashFunction hash)
{
    const QuietErrors quiet;
    const Key key = importKey(der);
    if (!key)
        return std::nullopt;

    auto state = std::make_unique<State>();
    state->digest.reset(EVP_MD_fetch(nullptr, nameOf(hash), nullptr));
    state->hashing.reset(EVP_MD_CTX_new());
    state->verifying.reset(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
    auto* context = state->verifying.get();
    const bool ready = state->digest && state->hashing && context &&
                       EVP_PKEY_verify_init(context) > 0 &&
                       EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) > 0 &&
                       EVP_PKEY_CTX_set_signature_md(context, state->digest.get()) > 0;
    if (!ready)
        return std::nullopt;
    return RSASignatureVerifier(std::move(state));
}

bool RSASignatureVerifier::verify(std::string_view message, std::span<const std::byte> signature)
{
    const QuietErrors quiet;
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash;
    unsigned int size = 0;
    auto* hashing = state_->hashing.get();
    return EVP_DigestInit_ex2(hashing, state_->digest.get(), nullptr) > 0 &&
           EVP_DigestUpdate(hashing, message.data(), message.size()) > 0 &&
           EVP_DigestFinal_ex(hashing, hash.data(), &size) > 0 &&
           EVP_PKEY_verify(state_->verifying.get(), bytes(signature.data()), signature.size(),
                           hash.data(), size) == 1;
}

RSASignatureVerifier::RSASignatureVerifier(std::unique_ptr<State> state) : state_(std::move(state))
{}
RSASignatureVerifier::RSASignatureVerifier(RSASignatureVerifier&&) noexcept = default;
RSASignatureVerifier& RSASignatureVerifier::operator=(RSASignatureVerifier&&) noexcept = default;
RSASignatureVerifier::~RSASignatureVerifier() = default;

}  // namespace platform
