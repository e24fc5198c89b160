#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

/// A fresh P-256 key with a certificate for "localhost", "account.test" and 127.0.0.1 that vouches
/// for itself, and what a server needs to use them.
class TestCertificate
{
public:
    TestCertificate();
    ~TestCertificate();
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    /// What a client has to trust.
    std::string pem() const;

    ssl_ctx_st* context() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
