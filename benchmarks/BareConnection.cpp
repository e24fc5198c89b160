#include "benchmarks/BareConnection.hpp"

#include "benchmarks/Server.hpp"

#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace
{

constexpr const char* host = "localhost";

void require(bool good, const char* what)
{
    if (!good)
        throw std::runtime_error(std::string("The bare connection failed: ") + what);
}

SSL_CTX* makeContext(const std::string& authority)
{
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    constexpr std::array<unsigned char, 9> http{8, 'h', 't', 't', 'p', '/', '1', '.', '1'};
    SSL_CTX_set_alpn_protos(context, http.data(), http.size());

    BIO* const in = BIO_new_mem_buf(authority.data(), static_cast<int>(authority.size()));
    X509* const certificate = PEM_read_bio_X509(in, nullptr, nullptr, nullptr);
    require(X509_STORE_add_cert(SSL_CTX_get_cert_store(context), certificate) == 1, "authority");
    X509_free(certificate);
    BIO_free(in);
    return context;
}

std::string requestText(const std::string& port)
{
    std::string text = std::string("GET ") + Server::closingPath + " HTTP/1.1\r\nHost: " + host +
                       ":" + port + "\r\n";
    for (const auto& [name, value] : requestHeaders())
        text += name + ": " + value + "\r\n";
    return text + "\r\n";
}

/// An open connection; the end of the object ends it.
class Connection
{
public:
    Connection(SSL_CTX* context, const addrinfo& address, SSL_SESSION* session)
        : socket_(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0)), tls_(SSL_new(context))
    {
        const int yes = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        require(::connect(socket_, address.ai_addr, address.ai_addrlen) == 0, "connect");
        SSL_set1_host(tls_, host);
        SSL_set_tlsext_host_name(tls_, host);
        SSL_set_fd(tls_, socket_);
        if (session)
            SSL_set_session(tls_, session);
        require(SSL_connect(tls_) == 1, "SSL_connect");
        require(SSL_session_reused(tls_) == (session ? 1 : 0), "resumed or not, against the plan");
        require(SSL_version(tls_) == TLS1_3_VERSION, "no TLS 1.3");
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection()
    {
        SSL_shutdown(tls_);
        SSL_free(tls_);
        close(socket_);
    }

    /// Sends the request and returns the answer as it comes, until the server closes.
    std::string exchange(const std::string& request)
    {
        require(SSL_write(tls_, request.data(), static_cast<int>(request.size())) > 0, "SSL_write");
        std::array<char, 16 * 1024> piece;
        std::string answer;
        for (int got = 1; got > 0;)
        {
            got = SSL_read(tls_, piece.data(), static_cast<int>(piece.size()));
            answer.append(piece.data(), static_cast<std::size_t>(std::max(got, 0)));
        }
        return answer;
    }

private:
    const int socket_;
    SSL* const tls_;
};

}  // namespace

struct BareConnector::State
{
    ~State()
    {
        SSL_SESSION_free(session);
        freeaddrinfo(address);
        SSL_CTX_free(context);
    }

    static int keep(SSL* tls, SSL_SESSION* session)
    {
        auto& state = *static_cast<State*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(tls)));
        SSL_SESSION_free(std::exchange(state.session, session));
        return 1;
    }

    SSL_CTX* context = makeContext(server().authority);
    SSL_SESSION* session = nullptr;
    addrinfo* address = nullptr;
    std::string request;
};

BareConnector::BareConnector(const std::string& origin, bool withTickets)
    : state_(std::make_unique<State>())
{
    const std::string port = origin.substr(origin.rfind(':') + 1);
    state_->request = requestText(port);
    addrinfo wish{};
    wish.ai_family = AF_INET;
    wish.ai_socktype = SOCK_STREAM;
    require(getaddrinfo(host, port.c_str(), &wish, &state_->address) == 0, "getaddrinfo");
    if (!withTickets)
        return;
    SSL_CTX_set_app_data(state_->context, state_.get());
    SSL_CTX_set_session_cache_mode(state_->context,
                                   SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(state_->context, &State::keep);
    connectAndRequest();
}

BareConnector::~BareConnector() = default;

void BareConnector::connect()
{
    const Connection connection(state_->context, *state_->address, state_->session);
}

void BareConnector::connectAndRequest()
{
    Connection connection(state_->context, *state_->address, state_->session);
    const auto answer = connection.exchange(state_->request);
    require(answer.starts_with("HTTP/1.") && answer.substr(8, 5) == " 200 " &&
                answer.size() > Server::bodySize,
            "no answer");
}
