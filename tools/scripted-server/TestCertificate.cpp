#include "tools/scripted-server/TestCertificate.hpp"

#include <stdexcept>

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace
{

EVP_PKEY* newKey(const std::string& kind)
{
    const std::string detail = kind.substr(kind.find(':') + 1);
    return kind.starts_with("rsa:")  ? EVP_RSA_gen(static_cast<unsigned>(std::stoul(detail)))
           : kind.starts_with("ec:") ? EVP_EC_gen(detail.c_str())
                                     : nullptr;
}

EVP_PKEY* sharedKey(EVP_PKEY* key)
{
    EVP_PKEY_up_ref(key);
    return key;
}

/// Throws unless OpenSSL said that it succeeded.
void require(bool success)
{
    if (!success)
        throw std::runtime_error("a certificate for tests cannot be made");
}

void addExtension(X509* certificate, X509* issuer, const std::string& name,
                  const std::string& value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension =
        X509V3_EXT_nconf(nullptr, &context, name.c_str(), value.c_str());
    require(extension && X509_add_ext(certificate, extension, -1) == 1);
    X509_EXTENSION_free(extension);
}

}  // namespace

struct TestCertificate::State
{
    explicit State(EVP_PKEY* ownKey) : key(ownKey, &EVP_PKEY_free) {}

    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key;
    std::unique_ptr<X509, decltype(&X509_free)> certificate{X509_new(), &X509_free};
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context{SSL_CTX_new(TLS_server_method()),
                                                              &SSL_CTX_free};
};

TestCertificate::TestCertificate()
    : TestCertificate(Content{
          .extensions = {{"basicConstraints", "critical,CA:TRUE"},
                         {"subjectAltName", "DNS:localhost,DNS:account.test,IP:127.0.0.1"}}})
{}

TestCertificate::TestCertificate(const Content& content, const TestCertificate* issuer)
    : state_(std::make_unique<State>(
          content.keyOwner ? sharedKey(content.keyOwner->state_->key.get()) : newKey(content.key)))
{
    X509* const certificate = state_->certificate.get();
    State& signer = issuer ? *issuer->state_ : *state_;
    require(state_->key != nullptr);
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), issuer ? 2 : 1);
    ASN1_TIME_set(X509_getm_notBefore(certificate), content.notBefore);
    ASN1_TIME_set(X509_getm_notAfter(certificate), content.notAfter);
    X509_set_pubkey(certificate, state_->key.get());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(content.subject.c_str()), -1,
                               -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get()));
    for (const auto& [name, value] : content.extensions)
        addExtension(certificate, signer.certificate.get(), name, value);
    const EVP_MD* const digest = EVP_get_digestbyname(content.digest.c_str());
    require(digest && X509_sign(certificate, signer.key.get(), digest) > 0);

    // Whether a key is strong enough is for the client to judge.
    SSL_CTX_set_security_level(state_->context.get(), 0);
    require(SSL_CTX_use_certificate(state_->context.get(), certificate) == 1 &&
            SSL_CTX_use_PrivateKey(state_->context.get(), state_->key.get()) == 1);
}

TestCertificate::~TestCertificate() = default;

std::string TestCertificate::pem() const
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
    PEM_write_bio_X509(memory.get(), certificate());
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

ssl_ctx_st* TestCertificate::context() const
{
    return state_->context.get();
}

x509_st* TestCertificate::certificate() const
{
    return state_->certificate.get();
}
