#include "tools/account-server/Authority.hpp"

#include <openssl/ec.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <vector>

namespace accountserver
{
namespace
{

constexpr std::time_t day = 24 * 60 * 60;
constexpr std::time_t renewBefore = 30 * day;
constexpr std::time_t authorityLife = 3650 * day;
constexpr std::time_t leafLife = 397 * day;

struct Extension
{
    int id;
    const char* value;
};

const std::vector<Extension> authorityExtensions = {
    {NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
    {NID_key_usage, "critical,keyCertSign"},
    {NID_subject_key_identifier, "hash"},
    {NID_name_constraints,
     "critical,permitted;DNS:localhost,permitted;IP:127.0.0.0/255.0.0.0,"
     "permitted;IP:0:0:0:0:0:0:0:1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
};

const std::vector<Extension> leafExtensions = {
    {NID_basic_constraints, "critical,CA:FALSE"},
    {NID_key_usage, "critical,digitalSignature"},
    {NID_ext_key_usage, "serverAuth"},
    {NID_subject_key_identifier, "hash"},
    {NID_authority_key_identifier, "keyid"},
    {NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1"},
};

struct Request
{
    std::string commonName;
    std::time_t now;
    std::time_t life;
    const std::vector<Extension>& extensions;
};

void setSerial(X509* certificate)
{
    std::array<unsigned char, 16> bytes{};
    demand(RAND_bytes(bytes.data(), bytes.size()) == 1, "make random bytes");
    bytes[0] &= 0x7F;  // a serial number is positive
    const std::unique_ptr<BIGNUM, Releaser<BN_free>> number(
        BN_bin2bn(bytes.data(), bytes.size(), nullptr));
    demand(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)),
           "set a serial number");
}

/// Without an issuer the certificate is signed by its own key.
Certificate issue(const Request& request, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey)
{
    Certificate certificate(X509_new());
    auto* made = certificate.get();
    demand(made && X509_set_version(made, 2) == 1, "make a certificate");
    setSerial(made);
    // An hour back, for clients whose clock is behind.
    ASN1_TIME_set(X509_getm_notBefore(made), request.now - 3600);
    ASN1_TIME_set(X509_getm_notAfter(made), request.now + request.life);
    auto* name = X509_get_subject_name(made);
    demand(X509_NAME_add_entry_by_txt(
               name, "CN", MBSTRING_UTF8,
               reinterpret_cast<const unsigned char*>(request.commonName.c_str()), -1, -1, 0) == 1,
           "name a certificate");
    demand(X509_set_issuer_name(made, issuer ? X509_get_subject_name(issuer) : name) == 1 &&
               X509_set_pubkey(made, key) == 1,
           "fill a certificate");

    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer ? issuer : made, made, nullptr, nullptr, 0);
    for (const auto& [id, value] : request.extensions)
    {
        const std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>> extension(
            X509V3_EXT_conf_nid(nullptr, &context, id, value));
        demand(extension && X509_add_ext(made, extension.get(), -1) == 1, "extend a certificate");
    }
    demand(X509_sign(made, issuerKey, EVP_sha256()) > 0, "sign a certificate");
    return certificate;
}

/// The certificate in the file when it belongs to the key, is signed by the issuer and lasts.
Certificate readUsable(const std::filesystem::path& file, EVP_PKEY* key, EVP_PKEY* issuerKey,
                       std::time_t now)
{
    const auto text = readFile(file);
    if (!text)
        return nullptr;
    Certificate certificate(PEM_read_bio_X509(reading(*text).get(), nullptr, nullptr, nullptr));
    auto until = now + renewBefore;
    const bool usable = certificate && X509_check_private_key(certificate.get(), key) == 1 &&
                        X509_verify(certificate.get(), issuerKey) == 1 &&
                        X509_cmp_time(X509_get0_notAfter(certificate.get()), &until) > 0;
    return usable ? std::move(certificate) : nullptr;
}

std::string text(X509* certificate)
{
    return pemText([&](BIO* out) { return PEM_write_bio_X509(out, certificate); });
}

Key makeCurveKey()
{
    return Key(EVP_EC_gen("P-256"));
}

}  // namespace

Authority::Authority(const std::filesystem::path& folder, std::time_t now)
    : key_(keptKey(folder / "authority.key", makeCurveKey)),
      leafKey_(keptKey(folder / "server.key", makeCurveKey))
{
    const auto authorityFile = folder / "authority.pem";
    certificate_ = readUsable(authorityFile, key_.get(), key_.get(), now);
    if (!certificate_)
    {
        const Request request{"Account server for development", now, authorityLife,
                              authorityExtensions};
        certificate_ = issue(request, key_.get(), nullptr, key_.get());
        writeFile(authorityFile, text(certificate_.get()));
    }
    const auto leafFile = folder / "server.pem";
    leaf_ = readUsable(leafFile, leafKey_.get(), key_.get(), now);
    if (!leaf_)
    {
        const Request request{"localhost", now, leafLife, leafExtensions};
        leaf_ = issue(request, leafKey_.get(), certificate_.get(), key_.get());
        writeFile(leafFile, text(leaf_.get()));
    }
}

std::string Authority::certificateText() const
{
    return text(certificate_.get());
}

}  // namespace accountserver
