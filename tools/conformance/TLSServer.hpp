#pragma once

#include "tools/scripted-server/TestCertificate.hpp"

#include <boost/json/object.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace conformance
{

/// The certificates of a case, made anew, and a server that is set up as the case says. Throws for
/// a field or an option that it does not know.
class TLSServer
{
public:
    TLSServer(const boost::json::object& record, const boost::json::object& meta);
    TLSServer(const TLSServer&) = delete;
    TLSServer& operator=(const TLSServer&) = delete;
    ~TLSServer();

    /// The one root that the client trusts, in PEM.
    std::string trusted() const;

    /// Null for a server without TLS.
    ssl_ctx_st* context() const;

private:
    const TestCertificate& issuerNamed(std::string_view name);
    void setUp(std::string_view options);

    const TestCertificate root_, otherRoot_;
    std::unique_ptr<TestCertificate> intermediate_, leaf_;
    std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)> anonymous_;
    ssl_ctx_st* context_ = nullptr;
};

/// Whether a client that takes any certificate, cipher and version comes to terms with a server on
/// this port of the machine: a server that nobody can talk to would be refused by everybody.
bool isUsable(int port);

}  // namespace conformance
