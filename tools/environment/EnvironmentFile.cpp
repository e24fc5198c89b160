#include "tools/environment/EnvironmentFile.hpp"

#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Security/RSASignature.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <system_error>

namespace tools
{
namespace
{

using platform::DecodingError;
using platform::JSONReader;
using tessera::AccountEnvironment;

/// What is expected of each field, as it is told to the person who wrote the file.
struct Expectation
{
    std::string_view field;
    const char* text;
};

constexpr Expectation expectations[] = {
    {"distribution", "\"Direct\" or \"Apple\""},
    {"server", "\"local\", \"preview\" or \"production\""},
    {"localizedName", "a text that is not empty"},
    {"localizedKeychainIdentifier", "a text that is not empty"},
    {"jwtPublicKey", "an object with \"algorithm\" and \"value\""},
    {"jwtPublicKey.algorithm", "\"RS256\", \"RS384\" or \"RS512\""},
    {"jwtPublicKey.value", "an RSA public key in PKCS #1 PEM form"},
    {"endpointURL", "an absolute address such as \"https://localhost:8443/\""},
    {"accountURL", "an absolute address such as \"https://localhost:8443/account/\""},
    {"marketingURL", "an absolute address such as \"https://localhost:8443/\""},
    {"authority", "certificates in PEM form, or null to trust those of the system"},
};

std::string nonEmptyText(JSONReader json)
{
    const auto text = json.text();
    if (text.empty())
        throw json.dataCorrupted();
    return std::string(text);
}

platform::URL address(JSONReader json)
{
    auto url = platform::URL::parse(json.text());
    if (!url)
        throw json.dataCorrupted();
    return *std::move(url);
}

/// The body of a PEM text as the decoder of tokens takes it: nothing but the two marker lines and
/// line feeds may stand around the base64.
std::string withoutMarkers(std::string text)
{
    for (const std::string_view part :
         {"-----BEGIN RSA PUBLIC KEY-----", "-----END RSA PUBLIC KEY-----", "\n"})
        for (auto place = text.find(part); place != std::string::npos; place = text.find(part))
            text.erase(place, part.size());
    return text;
}

tessera::JWTPublicKey publicKey(JSONReader json)
{
    auto key = json.decode<tessera::JWTPublicKey>();
    const auto der = platform::decodeBase64(withoutMarkers(key.value));
    // The hash function plays no part in whether a key can be imported.
    if (!der || !platform::RSASignatureVerifier::fromPKCS1(*der, platform::HashFunction::sha256))
        throw json.member("value").dataCorrupted();
    return key;
}

/// The number of certificates in a PEM text; 0 when one of them cannot be read.
int certificateCount(std::string_view pem)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> reading(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    int count = 0;
    while (X509* certificate = PEM_read_bio_X509(reading.get(), nullptr, nullptr, nullptr))
    {
        X509_free(certificate);
        ++count;
    }
    const bool atEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    return atEnd ? count : 0;
}

std::optional<std::string> authority(JSONReader json)
{
    if (json.isNull())
        return std::nullopt;
    auto pem = std::string(json.text());
    if (certificateCount(pem) == 0)
        throw json.dataCorrupted();
    return pem;
}

EnvironmentFile environmentFile(JSONReader json)
{
    AccountEnvironment environment{
        .distribution = json.decode<AccountEnvironment::Distribution>("distribution"),
        .server = json.decode<AccountEnvironment::Server>("server"),
        .localizedName = nonEmptyText(json.member("localizedName")),
        .localizedKeychainIdentifier = nonEmptyText(json.member("localizedKeychainIdentifier")),
        .jwtPublicKey = publicKey(json.member("jwtPublicKey")),
        .endpointURL = address(json.member("endpointURL")),
        .accountURL = address(json.member("accountURL")),
        .marketingURL = address(json.member("marketingURL"))};
    return {std::move(environment), authority(json.member("authority"))};
}

EnvironmentFileError refusal(const DecodingError& error)
{
    std::string field;
    for (const auto& key : error.codingPath())
        field += (field.empty() ? "" : ".") + key;
    const bool missing = error.kind() == DecodingError::Kind::keyNotFound;
    if (missing)
        field += (field.empty() ? "" : ".") + error.key();

    if (field.empty())
        return {field, "The environment file is not a JSON object.",
                "Use the file that the account server writes at its start."};
    for (const auto& expectation : expectations)
        if (expectation.field == field)
            return {field,
                    "The environment file " +
                        (missing ? "lacks the field \"" + field + "\"."
                                 : "holds a field \"" + field + "\" that cannot be used."),
                    std::string("It must be ") + expectation.text + "."};
    return {field, "The environment file holds a field \"" + field + "\" that cannot be used.",
            "Use the file that the account server writes at its start."};
}

}  // namespace
}  // namespace tools

template <>
struct platform::JSONCoding<tools::EnvironmentFile>
{
    static tools::EnvironmentFile decode(const JSONReader& json)
    {
        return tools::environmentFile(json);
    }
};

namespace tools
{

platform::CurlURLSession::Configuration EnvironmentFile::sessionConfiguration() const
{
    platform::CurlURLSession::Configuration configuration;
    configuration.trustedAuthority = authority;
    return configuration;
}

EnvironmentFile parseEnvironment(std::string_view json)
{
    try
    {
        return platform::JSONDecoder().decode<EnvironmentFile>(json);
    }
    catch (const DecodingError& error)
    {
        throw refusal(error);
    }
}

EnvironmentFile readEnvironmentFile(const std::filesystem::path& file)
{
    std::error_code unknown;
    errno = std::filesystem::is_directory(file, unknown) ? EISDIR : 0;
    std::ifstream stream(file, std::ios::binary);
    if (errno != EISDIR && stream)
        return parseEnvironment(std::string(std::istreambuf_iterator<char>(stream), {}));
    throw EnvironmentFileError({},
                               "The environment file " + file.string() + " cannot be read (" +
                                   std::generic_category().message(errno) + ").",
                               "Check the path, and that the account server has started.");
}

}  // namespace tools
