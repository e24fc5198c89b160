#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct ssl_ctx_st;
struct x509_st;

/// A fresh key with a certificate, and what a server needs to use them. Throws
/// `std::runtime_error` when OpenSSL cannot make what is asked for.
class TestCertificate
{
public:
    /// What the certificate says.
    struct Content
    {
        /// "rsa:2048", or "ec:" and a curve.
        std::string key = "ec:P-256";
        /// Whose key is used again instead of a new one, because an RSA key takes long to make.
        const TestCertificate* keyOwner = nullptr;
        std::string digest = "sha256";
        std::string subject = "test";
        std::time_t notBefore = std::time(nullptr) - 3600;
        std::time_t notAfter = std::time(nullptr) + 3600;
        /// Names and values as in a configuration file of OpenSSL.
        std::vector<std::pair<std::string, std::string>> extensions = {};
    };

    /// For "localhost", "account.test" and 127.0.0.1; it vouches for itself.
    TestCertificate();

    /// Signed by `issuer`, or by itself.
    explicit TestCertificate(const Content& content, const TestCertificate* issuer = nullptr);
    ~TestCertificate();
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    /// What a client has to trust.
    std::string pem() const;

    /// A server that has the certificate and its key, however weak. It may be set up further.
    ssl_ctx_st* context() const;

    x509_st* certificate() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
