#include "tools/conformance/TLSServer.hpp"

#include "tools/conformance/Judge.hpp"

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include <openssl/bio.h>
#include <openssl/ssl.h>

namespace conformance
{
namespace
{

using boost::json::object;
using Content = TestCertificate::Content;

/// Everything that OpenSSL has, whatever it is worth.
constexpr auto allCiphers = "ALL:COMPLEMENTOFALL:@SECLEVEL=0";

Content rootContent(std::string subject)
{
    return {.subject = std::move(subject),
            .extensions = {{"basicConstraints", "critical,CA:TRUE"},
                           {"keyUsage", "critical,keyCertSign,cRLSign"}}};
}

std::time_t timeOf(std::string_view text)
{
    constexpr std::time_t year = 365 * 24 * 3600;
    if (text == "now" || text == "in a year")
        return std::time(nullptr) + (text == "now" ? 0 : year);
    std::tm fields{};
    const std::string terminated(text);
    const char* const end = ::strptime(terminated.c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields);
    if (end == nullptr || *end != '\0')
        throw std::invalid_argument("the data file holds a time of another form");
    return ::timegm(&fields);
}

/// A certificate with such a key, made once: the cases of a process share one for each role.
const TestCertificate& keyOwner(const std::string& key, bool ofIssuer)
{
    static std::map<std::pair<std::string, bool>, std::unique_ptr<TestCertificate>> owners;
    auto& owner = owners[{key, ofIssuer}];
    if (!owner)
        owner = std::make_unique<TestCertificate>(Content{.key = key});
    return *owner;
}

/// The fields of a certificate: those of the case, and the file's own for what it does not mention.
object fieldsOf(const object& record, const object& defaults)
{
    object fields = defaults;
    for (const auto& [key, value] : record)
        fields[key] = value;
    return fields;
}

Content contentOf(const object& fields, bool isIssuer)
{
    Content content;
    std::string constraints;
    const auto extension = [&](const char* name)
    {
        return [&content, name](std::string_view value)
        { content.extensions.emplace_back(name, value); };
    };
    const std::map<std::string_view, std::function<void(std::string_view)>> texts{
        {"issuer", [](std::string_view) {}},
        {"key", [&](std::string_view text) { content.key = text; }},
        {"digest", [&](std::string_view text) { content.digest = text; }},
        {"subject", [&](std::string_view text) { content.subject = text; }},
        {"notBefore", [&](std::string_view text) { content.notBefore = timeOf(text); }},
        {"notAfter", [&](std::string_view text) { content.notAfter = timeOf(text); }},
        {"san", extension("subjectAltName")},
        {"keyUsage", extension("keyUsage")},
        {"extendedKeyUsage", extension("extendedKeyUsage")},
        {"nameConstraints", extension("nameConstraints")}};
    for (const auto& [key, value] : fields)
    {
        if (key == "ca")
            constraints.insert(0, value.as_bool() ? "CA:TRUE" : "CA:FALSE");
        else if (key == "pathLength")
            constraints += ",pathlen:" + std::to_string(value.to_number<int>());
        else if (!value.is_null())
            texts.at(key)(value.as_string());
    }
    content.extensions.emplace_back("basicConstraints", "critical," + constraints);
    content.keyOwner = &keyOwner(content.key, isIssuer);
    return content;
}

void require(bool success, std::string_view what)
{
    if (!success)
        throw std::runtime_error("the server cannot be set up: " + std::string(what));
}

void setVersion(SSL_CTX* context, int version)
{
    require(SSL_CTX_set_min_proto_version(context, version) == 1 &&
                SSL_CTX_set_max_proto_version(context, version) == 1,
            "the version");
}

}  // namespace

TLSServer::TLSServer(const object& record, const object& meta)
    : root_(rootContent("the trusted root")),
      otherRoot_(rootContent("the other root")),
      anonymous_(nullptr, &SSL_CTX_free)
{
    const object& defaults = meta.at("defaults").as_object();
    const auto made = [&](const object& each, bool isIssuer)
    {
        const object fields = fieldsOf(each, defaults);
        const auto issuer = textOf(fields, "issuer");
        return std::make_unique<TestCertificate>(contentOf(fields, isIssuer),
                                                 issuer == "self" ? nullptr : &issuerNamed(issuer));
    };
    if (const auto* intermediate = record.if_contains("intermediate"))
        intermediate_ = made(intermediate->as_object(), true);
    if (const auto& leaf = record.at("leaf"); leaf.is_object())
        leaf_ = made(leaf.as_object(), false);
    else
        anonymous_.reset(SSL_CTX_new(TLS_server_method()));
    context_ = leaf_ ? leaf_->context() : anonymous_.get();

    const auto* sends = record.if_contains("sendsIntermediate");
    if (sends && sends->as_bool())
        require(SSL_CTX_add1_chain_cert(context_, intermediate_->certificate()) == 1, "the chain");
    setUp(textOf(record, "server"));
}

TLSServer::~TLSServer() = default;

const TestCertificate& TLSServer::issuerNamed(std::string_view name)
{
    if (name == "intermediate" && intermediate_)
        return *intermediate_;
    if (name != "root" && name != "other root")
        throw std::invalid_argument("there is no code for this issuer");
    return name == "root" ? root_ : otherRoot_;
}

/// Does what `openssl s_server` does with these options.
void TLSServer::setUp(std::string_view options)
{
    if (options == "plain HTTP")
    {
        context_ = nullptr;
        return;
    }
    static const std::map<std::string_view, int> versions{{"-tls1", TLS1_VERSION},
                                                          {"-tls1_1", TLS1_1_VERSION},
                                                          {"-tls1_2", TLS1_2_VERSION},
                                                          {"-tls1_3", TLS1_3_VERSION}};
    std::istringstream words{std::string(options)};
    for (std::string word; words >> word;)
    {
        if (versions.contains(word))
            setVersion(context_, versions.at(word));
        else if (word == "-cipher" && words >> word)
            require(SSL_CTX_set_cipher_list(context_, word.c_str()) == 1, "the ciphers");
        else
            require(word == "-nocert" && !leaf_, word);
    }
    SSL_CTX_set_dh_auto(context_, 1);
}

std::string TLSServer::trusted() const
{
    return root_.pem();
}

ssl_ctx_st* TLSServer::context() const
{
    return context_;
}

bool isUsable(int port)
{
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_cipher_list(context.get(), allCiphers);
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(
        BIO_new_ssl_connect(context.get()), &BIO_free_all);
    BIO_set_conn_hostname(connection.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
    return BIO_do_handshake(connection.get()) == 1;
}

}  // namespace conformance
