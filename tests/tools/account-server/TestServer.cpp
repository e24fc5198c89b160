#include "tests/tools/account-server/TestServer.hpp"

#include "tools/account-server/Files.hpp"
#include "tools/account-server/Mailer.hpp"
#include "tools/account-server/OpenSSL.hpp"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace accountserver
{
namespace json = boost::json;

namespace
{

std::filesystem::path makeFolder()
{
    auto pattern = (std::filesystem::temp_directory_path() / "account-server-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp");
    return pattern;
}

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* text)
{
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

std::size_t addHeader(char* data, std::size_t size, std::size_t count, void* reply)
{
    const std::string line(data, size * count);
    const auto colon = line.find(": ");
    if (colon != std::string::npos)
    {
        auto name = line.substr(0, colon);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        static_cast<Reply*>(reply)->headers[name] =
            line.substr(colon + 2, line.find_last_not_of("\r\n") - colon - 1);
    }
    return size * count;
}

Reply perform(CURL* curl, const std::string& address, const Call& call,
              const std::string& authority)
{
    Reply reply;
    std::vector<std::string> lines = {"Content-Type: application/json",
                                      "Expect:", std::string("User-Agent: ") + userAgent};
    if (!call.token.empty())
        lines.push_back("Authorization: Bearer " + call.token);
    for (const auto& line : call.headers)
    {
        const auto name = line.substr(0, line.find(':') + 1);
        std::erase_if(lines, [&](const auto& usual) { return usual.starts_with(name); });
        lines.push_back(line);
    }
    curl_slist* headers = nullptr;
    for (const auto& line : lines)
        headers = curl_slist_append(headers, line.c_str());
    const auto url = address + call.path.substr(1);
    curl_easy_reset(curl);
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, call.method.c_str());
    curl_easy_setopt(curl, CURLOPT_NOBODY, call.method == "HEAD" ? 1L : 0L);
    if (!call.body.empty())
    {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(call.body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, call.body.data());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, call.timeout);
    curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
    curl_blob blob{const_cast<char*>(authority.data()), authority.size(), CURL_BLOB_COPY};
    curl_easy_setopt(curl, CURLOPT_CAINFO_BLOB, &blob);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, addHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
    reply.error = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    reply.status = static_cast<int>(status);
    reply.type = reply.headers["content-type"];
    curl_slist_free_all(headers);
    return reply;
}

Reply performOnce(const std::string& address, const Call& call, const std::string& authority)
{
    const std::unique_ptr<CURL, Releaser<curl_easy_cleanup>> curl(curl_easy_init());
    return perform(curl.get(), address, call, authority);
}

std::string decoded(std::string text)
{
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    const auto padding = (4 - text.size() % 4) % 4;
    text.append(padding, '=');
    std::string bytes(text.size(), '\0');
    const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    if (size < 0)
        throw std::runtime_error("not base64url");
    bytes.resize(static_cast<std::size_t>(size) - padding);
    return bytes;
}

Key publicKey(const json::value& environment)
{
    const std::string text(environment.at("jwtPublicKey").at("value").as_string());
    char *name = nullptr, *header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    if (PEM_read_bio(reading(text).get(), &name, &header, &data, &size) != 1)
        throw std::runtime_error("no PEM");
    const unsigned char* bytes = data;
    Key key(d2i_PublicKey(EVP_PKEY_RSA, nullptr, &bytes, size));
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
    return key;
}

}  // namespace

TemporaryFolder::TemporaryFolder() : path(makeFolder()) {}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string Reply::code() const
{
    boost::system::error_code failure;
    const auto value = json::parse(body, failure);
    if (failure || !value.is_object() || !value.as_object().contains("message"))
        return "no error body: " + body;
    return std::string(value.at("code").as_string());
}

json::value Reply::json() const
{
    return json::parse(body);
}

TestServer::TestServer(const std::filesystem::path& state) : TestServer(settings(state)) {}

TestServer::TestServer(Settings settings)
    : server(std::make_unique<Server>(settings)),
      settings_(std::move(settings)),
      thread_([this] { server->run(); }),
      kept_(curl_easy_init(), curl_easy_cleanup)
{}

TestServer::~TestServer()
{
    stop();
}

void TestServer::stop()
{
    if (!thread_.joinable())
        return;
    server->stop();
    thread_.join();
}

Settings TestServer::settings(const std::filesystem::path& state)
{
    Settings settings;
    settings.state = state;
    settings.port = 0;
    settings.controlPort = 0;
    settings.printMail = false;
    settings.logRequests = false;
    return settings;
}

Reply TestServer::call(const Call& call) const
{
    return performOnce(address(), call, authority());
}

Reply TestServer::callAgain(const Call& call)
{
    return perform(kept_.get(), address(), call, authority());
}

Reply TestServer::bareControl(const Call& call) const
{
    const auto address = "http://127.0.0.1:" + std::to_string(*server->controlPort()) + "/";
    return performOnce(address, call, authority());
}

Reply TestServer::control(const std::string& what, const std::string& body) const
{
    const auto space = what.find(' ');
    auto reply =
        bareControl({what.substr(0, space), what.substr(space + 1), body, "", {"X-Control: 1"}});
    EXPECT_TRUE(reply.status == 200 || reply.status == 204) << what << " " << reply.body;
    return reply;
}

void TestServer::requestCode(const std::string& email) const
{
    const auto body = json::serialize(json::object{{"email", email}});
    EXPECT_EQ(call({"POST", "/v2/auth/one-time-code", body, "", {}}).status, 204);
}

std::string TestServer::newestCode(const std::string& email) const
{
    return accountserver::newestCode(settings_.state, email).value_or("none");
}

Reply TestServer::signIn(const std::string& email, const std::string& code,
                         const std::string& token) const
{
    const auto body = json::serialize(json::object{{"email", email}, {"oneTimeCode", code}});
    return call({"POST", "/v2/auth", body, token, {"Accept: application/jwt"}});
}

std::string TestServer::signedIn(const std::string& email) const
{
    requestCode(email);
    auto reply = signIn(email, newestCode(email));
    EXPECT_EQ(reply.status, 200) << reply.body;
    return reply.body;
}

void TestServer::advance(double seconds) const
{
    control("POST /clock", json::serialize(json::object{{"advance", seconds}}));
}

std::string TestServer::address() const
{
    return "https://localhost:" + std::to_string(server->port()) + "/";
}

std::string TestServer::authority() const
{
    return std::string(environment().at("authority").as_string());
}

json::value TestServer::environment() const
{
    return json::parse(readFile(settings_.state / "environment.json").value());
}

json::value verifiedPayload(const std::string& token, const json::value& environment)
{
    const auto first = token.find('.');
    const auto last = token.rfind('.');
    const auto header = json::parse(decoded(token.substr(0, first)));
    const auto& algorithm = environment.at("jwtPublicKey").at("algorithm").as_string();
    EXPECT_EQ(header.at("alg").as_string(), algorithm);
    const auto key = publicKey(environment);
    const auto signature = decoded(token.substr(last + 1));
    const std::string digest = "SHA" + std::string(algorithm).substr(2);
    const std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context(EVP_MD_CTX_new());
    EVP_DigestVerifyInit(context.get(), nullptr, EVP_get_digestbyname(digest.c_str()), nullptr,
                         key.get());
    const int valid = EVP_DigestVerify(
        context.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
        reinterpret_cast<const unsigned char*>(token.data()), last);
    if (valid != 1)
        throw std::runtime_error("wrong signature");
    return json::parse(decoded(token.substr(first + 1, last - first - 1)));
}

}  // namespace accountserver
