#pragma once

#include "tools/account-server/OpenSSL.hpp"

#include <ctime>
#include <filesystem>
#include <string>

namespace accountserver
{

/// The server's own certificate authority and the certificate that it issues for loopback.
///
/// Both are kept in the state folder, so that a client that was told of the authority once goes on
/// trusting it. The authority may sign for loopback names alone: whoever steals its key gains
/// nothing beyond this machine. The certificate is made anew when it ends within 30 days.
/// Throws `Failure`.
class Authority
{
public:
    Authority(const std::filesystem::path& folder, std::time_t now);

    /// The authority's certificate as PEM.
    std::string certificateText() const;

    X509* leaf() const { return leaf_.get(); }
    EVP_PKEY* leafKey() const { return leafKey_.get(); }

private:
    Key key_;
    Certificate certificate_;
    Key leafKey_;
    Certificate leaf_;
};

}  // namespace accountserver
