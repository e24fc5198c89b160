#include "tests/support/TestKey.hpp"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>

struct TestKey::State
{
    EVP_PKEY* key = EVP_RSA_gen(2048);
};

namespace
{

void require(bool good)
{
    if (!good)
        throw std::runtime_error("OpenSSL failed in the tests' own key");
}

std::vector<std::byte> take(unsigned char* der, int size)
{
    require(size > 0);
    const auto* begin = reinterpret_cast<const std::byte*>(der);
    std::vector<std::byte> bytes(begin, begin + size);
    OPENSSL_free(der);
    return bytes;
}

const EVP_MD* digest(platform::HashFunction hash)
{
    switch (hash)
    {
        case platform::HashFunction::sha256:
            return EVP_sha256();
        case platform::HashFunction::sha384:
            return EVP_sha384();
        case platform::HashFunction::sha512:
            return EVP_sha512();
    }
    return nullptr;
}

}  // namespace

TestKey::TestKey() : state_(std::make_unique<State>())
{
    require(state_->key != nullptr);
}

TestKey::~TestKey()
{
    EVP_PKEY_free(state_->key);
}

std::vector<std::byte> TestKey::sign(std::string_view message, platform::HashFunction hash) const
{
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(),
                                                                     EVP_MD_CTX_free);
    require(EVP_DigestSignInit(context.get(), nullptr, digest(hash), nullptr, state_->key) > 0);
    const auto* data = reinterpret_cast<const unsigned char*>(message.data());
    std::size_t size = 0;
    require(EVP_DigestSign(context.get(), nullptr, &size, data, message.size()) > 0);
    std::vector<std::byte> signature(size);
    auto* out = reinterpret_cast<unsigned char*>(signature.data());
    require(EVP_DigestSign(context.get(), out, &size, data, message.size()) > 0);
    signature.resize(size);
    return signature;
}

std::vector<std::byte> TestKey::publicDER() const
{
    unsigned char* der = nullptr;
    const int size = i2d_PublicKey(state_->key, &der);
    return take(der, size);
}

std::vector<std::byte> TestKey::privateDER() const
{
    unsigned char* der = nullptr;
    const int size = i2d_PrivateKey(state_->key, &der);
    return take(der, size);
}

std::vector<std::byte> TestKey::subjectPublicKeyInfoDER() const
{
    unsigned char* der = nullptr;
    const int size = i2d_PUBKEY(state_->key, &der);
    return take(der, size);
}

std::string TestKey::publicPEM() const
{
    const auto der = publicDER();
    const std::unique_ptr<BIO, void (*)(BIO*)> out(BIO_new(BIO_s_mem()), BIO_free_all);
    require(PEM_write_bio(out.get(), "RSA PUBLIC KEY", "",
                          reinterpret_cast<const unsigned char*>(der.data()),
                          static_cast<long>(der.size())) > 0);
    char* text = nullptr;
    const long size = BIO_get_mem_data(out.get(), &text);
    return {text, static_cast<std::size_t>(size) - 1};
}
