#include "tools/account-server/Tokens.hpp"

#include <openssl/rsa.h>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <array>
#include <cmath>
#include <vector>

namespace accountserver
{
namespace json = boost::json;

namespace
{

constexpr double reuse = 1;  // seconds
constexpr std::size_t issuedLimit = 10'000;

std::string base64url(const unsigned char* data, std::size_t size)
{
    std::string text(4 * ((size + 2) / 3) + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data,
                                       static_cast<int>(size));
    text.resize(static_cast<std::size_t>(length));
    while (text.ends_with('='))
        text.pop_back();
    for (auto& character : text)
    {
        if (character == '+')
            character = '-';
        else if (character == '/')
            character = '_';
    }
    return text;
}

std::string base64url(std::string_view text)
{
    return base64url(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

const EVP_MD* digest(Algorithm algorithm)
{
    switch (algorithm)
    {
        case Algorithm::rs384:
            return EVP_sha384();
        case Algorithm::rs512:
            return EVP_sha512();
        case Algorithm::rs256:
            break;
    }
    return EVP_sha256();
}

json::object accountClaims(const Account& account)
{
    return {{"user", account.user}, {"uuid", account.uuid}};
}

}  // namespace

std::string_view text(Algorithm algorithm)
{
    constexpr std::array<std::string_view, 3> names = {"RS256", "RS384", "RS512"};
    return names.at(static_cast<std::size_t>(algorithm));
}

Tokens::Tokens(const std::filesystem::path& keyFile, Algorithm algorithm, const ServerClock& clock)
    : key_(keptKey(keyFile, [] { return Key(EVP_RSA_gen(2048)); })),
      algorithm_(algorithm),
      clock_(clock),
      header_(base64url(
          json::serialize(json::object{{"alg", accountserver::text(algorithm)}, {"typ", "JWT"}})))
{
    if (EVP_PKEY_get_base_id(key_.get()) != EVP_PKEY_RSA || EVP_PKEY_get_bits(key_.get()) != 2048)
        throw Failure(ExitCode::state,
                      keyFile.string() + " is no RSA key of 2048 bits. Remove it for a new one.");
}

std::string Tokens::session(const Account& account, const std::string& session) const
{
    auto claims = accountClaims(account);
    claims["session"] = session;
    return sign(json::serialize(claims));
}

std::string Tokens::info(const Account& account, const std::string& currentRevision,
                         const std::string& audience, TokenFault fault)
{
    auto claims = accountClaims(account);
    claims["aud"] = fault == TokenFault::otherAudience ? "other." + audience : audience;
    if (account.email)
        claims["email"] = *account.email;
    claims["terms"] = {{"accepted_revision", account.acceptedRevision},
                       {"current_revision", currentRevision}};
    auto content = json::serialize(claims);

    const double now = clock_.now();
    auto& issued = issued_[account.user + " " + audience];
    if (issued.content != content || now < issued.at || now >= issued.at + reuse)
    {
        claims["iat"] = static_cast<std::int64_t>(std::floor(now));
        issued = {now, std::move(content), sign(json::serialize(claims))};
    }
    auto token = issued.token;
    if (issued_.size() > issuedLimit)
        issued_.clear();
    return token;
}

std::string Tokens::sign(std::string_view payload) const
{
    auto token = header_ + "." + base64url(payload);
    const std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context(EVP_MD_CTX_new());
    std::vector<unsigned char> signature(static_cast<std::size_t>(EVP_PKEY_get_size(key_.get())));
    auto size = signature.size();
    const bool made =
        context &&
        EVP_DigestSignInit(context.get(), nullptr, digest(algorithm_), nullptr, key_.get()) == 1 &&
        EVP_DigestSign(context.get(), signature.data(), &size,
                       reinterpret_cast<const unsigned char*>(token.data()), token.size()) == 1;
    demand(made, "sign a token");
    return token + "." + base64url(signature.data(), size);
}

std::string Tokens::publicKeyText() const
{
    unsigned char* der = nullptr;
    const int size = i2d_PublicKey(key_.get(), &der);
    demand(size > 0, "write the public key");
    auto text =
        pemText([&](BIO* out) { return PEM_write_bio(out, "RSA PUBLIC KEY", "", der, size) > 0; });
    OPENSSL_free(der);
    text.pop_back();
    return text;
}

std::string withWrongSignature(std::string token)
{
    // The first character of the signature, so that all bits of the change count.
    auto& character = token.at(token.rfind('.') + 1);
    character = character == 'A' ? 'B' : 'A';
    return token;
}

}  // namespace accountserver
