#include "tests/support/TestCertificate.hpp"

#include <stdexcept>

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

struct TestCertificate::State
{
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{EVP_EC_gen("P-256"), &EVP_PKEY_free};
    std::unique_ptr<X509, decltype(&X509_free)> certificate{X509_new(), &X509_free};
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context{SSL_CTX_new(TLS_server_method()),
                                                              &SSL_CTX_free};
};

namespace
{

void addExtension(X509* certificate, int which, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, which, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

}  // namespace

TestCertificate::TestCertificate() : state_(std::make_unique<State>())
{
    constexpr long hour = 3600;
    X509* const certificate = state_->certificate.get();
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -hour);
    X509_gmtime_adj(X509_getm_notAfter(certificate), hour);
    X509_set_pubkey(certificate, state_->key.get());
    X509_NAME* const name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("test"), -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, NID_subject_alt_name, "DNS:localhost,DNS:account.test,IP:127.0.0.1");
    const bool usable = X509_sign(certificate, state_->key.get(), EVP_sha256()) > 0 &&
                        SSL_CTX_use_certificate(state_->context.get(), certificate) == 1 &&
                        SSL_CTX_use_PrivateKey(state_->context.get(), state_->key.get()) == 1;
    if (!usable)
        throw std::runtime_error("no test certificate");
}

TestCertificate::~TestCertificate() = default;

std::string TestCertificate::pem() const
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
    PEM_write_bio_X509(memory.get(), state_->certificate.get());
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

ssl_ctx_st* TestCertificate::context() const
{
    return state_->context.get();
}
