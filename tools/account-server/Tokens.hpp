#pragma once

#include "tools/account-server/OpenSSL.hpp"
#include "tools/account-server/ServerClock.hpp"
#include "tools/account-server/Settings.hpp"
#include "tools/account-server/Store.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace accountserver
{

/// What a fault does to a token before it is handed out.
enum class TokenFault
{
    none,
    wrongSignature,
    otherAudience,
};

std::string_view text(Algorithm algorithm);

/// Makes the two signed tokens of the API: JSON Web Tokens (RFC 7519) in compact form, signed with
/// RSASSA-PKCS1-v1_5 (RFC 7518, 3.3) by a 2048-bit key that is kept in the state folder.
///
/// A signature costs most of a request's time, so an info token is handed out again for a second
/// unless something in it changed. Throws `Failure`.
class Tokens
{
public:
    Tokens(const std::filesystem::path& keyFile, Algorithm algorithm, const ServerClock& clock);

    std::string session(const Account& account, const std::string& session) const;
    std::string info(const Account& account, const std::string& currentRevision,
                     const std::string& audience, TokenFault fault);

    /// PKCS #1 PEM, lines separated by one line feed, none at the end.
    std::string publicKeyText() const;
    Algorithm algorithm() const { return algorithm_; }

private:
    struct Issued
    {
        double at = 0;
        std::string content;
        std::string token;
    };

    std::string sign(std::string_view payload) const;

    Key key_;
    Algorithm algorithm_;
    const ServerClock& clock_;
    std::string header_;
    std::unordered_map<std::string, Issued> issued_;
};

/// The token with one bit of its signature turned over.
std::string withWrongSignature(std::string token);

}  // namespace accountserver
