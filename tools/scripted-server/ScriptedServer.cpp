#include "tools/scripted-server/ScriptedServer.hpp"

#include "tools/scripted-server/TestCertificate.hpp"

#include "Platform/Concurrency/Thread.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <openssl/ssl.h>

using namespace std::chrono_literals;

struct ScriptedServer::Connection::Secured
{
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl{nullptr, &SSL_free};
};

namespace
{

int listenOnLoopback()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    constexpr int backlog = 128;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, backlog) != 0)
        throw std::runtime_error("no loopback port");
    return listener;
}

int portOf(int listener)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

/// What the head says in "Content-Length", 0 when it says nothing.
std::size_t announcedLength(std::string head)
{
    std::ranges::transform(head, head.begin(), [](unsigned char c) { return std::tolower(c); });
    constexpr std::string_view name = "\r\ncontent-length:";
    const auto found = head.find(name);
    return found == std::string::npos
               ? 0
               : std::strtoul(head.c_str() + found + name.size(), nullptr, 10);
}

}  // namespace

ScriptedServer::ScriptedServer(Script script)
    : ScriptedServer(std::move(script), static_cast<SSL_CTX*>(nullptr))
{}

ScriptedServer::ScriptedServer(Script script, const TestCertificate& certificate)
    : ScriptedServer(std::move(script), certificate.context())
{}

ScriptedServer::ScriptedServer(Script script, ssl_ctx_st* context)
    : script_(std::move(script)), context_(context), listener_(listenOnLoopback())
{
    port_ = portOf(listener_);
    thread_ = platform::startThread("test-server", [this] { accept(); });
}

ScriptedServer::~ScriptedServer()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        // Every wait of a script ends with it, and so does the one for new connections.
        for (const Connection& connection : connections_)
            ::shutdown(connection.socket_, SHUT_RDWR);
    }
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    for (Connection& connection : connections_)
        connection.thread_.join();
    ::close(listener_);
}

ScriptedServer::Script ScriptedServer::answering(std::string bytes)
{
    return [bytes = std::move(bytes)](Connection& connection)
    {
        while (!connection.readRequest().empty())
            connection.send(bytes);
    };
}

std::string ScriptedServer::ok(std::string_view body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           std::string(body);
}

std::string ScriptedServer::address(std::string_view path) const
{
    return (context_ ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(port_) +
           std::string(path);
}

void ScriptedServer::accept()
{
    while (true)
    {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(mutex_);
        if (socket < 0)
            return;
        Connection& connection = connections_.emplace_back(*this, socket);
        if (stopping_)
            ::shutdown(socket, SHUT_RDWR);
        ++open_;
        connection.thread_ =
            platform::startThread("test-connection", [this, &connection] { serve(connection); });
        changed_.notify_all();
    }
}

void ScriptedServer::serve(Connection& connection)
{
    if (!context_ || connection.secure(context_))
        script_(connection);
    connection.close();
    const std::lock_guard lock(mutex_);
    --open_;
    changed_.notify_all();
}

std::vector<std::string> ScriptedServer::requests() const
{
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<std::string> ScriptedServer::received() const
{
    const std::lock_guard lock(mutex_);
    std::vector<std::string> all;
    for (const Connection& connection : connections_)
        all.push_back(connection.received_);
    return all;
}

std::size_t ScriptedServer::sent() const
{
    const std::lock_guard lock(mutex_);
    return sent_;
}

int ScriptedServer::accepted() const
{
    const std::lock_guard lock(mutex_);
    return static_cast<int>(connections_.size());
}

int ScriptedServer::open() const
{
    const std::lock_guard lock(mutex_);
    return open_;
}

bool ScriptedServer::waitForRequests(std::size_t count) const
{
    return waitUntil([this, count] { return requests_.size() >= count; });
}

bool ScriptedServer::waitForAccepted(int count) const
{
    return waitUntil([this, count] { return std::cmp_greater_equal(connections_.size(), count); });
}

bool ScriptedServer::waitForOpen(int count) const
{
    return waitUntil([this, count] { return open_ == count; });
}

bool ScriptedServer::waitUntil(const std::function<bool()>& condition) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 10s, condition);
}

ScriptedServer::Connection::Connection(ScriptedServer& server, int socket)
    : server_(server), socket_(socket)
{}

ScriptedServer::Connection::~Connection()
{
    secured_.reset();
    ::close(socket_);
}

bool ScriptedServer::Connection::secure(ssl_ctx_st* context)
{
    secured_ = std::make_unique<Secured>();
    secured_->ssl.reset(SSL_new(context));
    SSL_set_fd(secured_->ssl.get(), socket_);
    gone_ = SSL_accept(secured_->ssl.get()) != 1;
    return !gone_;
}

bool ScriptedServer::Connection::receive()
{
    char bytes[16 * 1024];
    const auto got = gone_      ? 0
                     : secured_ ? SSL_read(secured_->ssl.get(), bytes, sizeof bytes)
                                : ::recv(socket_, bytes, sizeof bytes, 0);
    gone_ = got <= 0;
    if (!gone_)
        keep({bytes, static_cast<std::size_t>(got)});
    return !gone_;
}

void ScriptedServer::Connection::keep(std::string_view bytes)
{
    buffer_.append(bytes);
    const std::lock_guard lock(server_.mutex_);
    received_.append(bytes);
}

std::string ScriptedServer::Connection::take(std::size_t length)
{
    std::string taken = buffer_.substr(0, length);
    buffer_.erase(0, length);
    const std::lock_guard lock(server_.mutex_);
    server_.requests_.push_back(taken);
    server_.changed_.notify_all();
    return taken;
}

std::string ScriptedServer::Connection::readHead()
{
    constexpr std::string_view end = "\r\n\r\n";
    while (buffer_.find(end) == std::string::npos)
        if (!receive())
            return {};
    return take(buffer_.find(end) + end.size());
}

std::string ScriptedServer::Connection::readRequest()
{
    constexpr std::string_view end = "\r\n\r\n";
    while (buffer_.find(end) == std::string::npos)
        if (!receive())
            return {};
    const std::size_t head = buffer_.find(end) + end.size();
    const std::size_t whole = head + announcedLength(buffer_.substr(0, head));
    while (buffer_.size() < whole)
        if (!receive())
            return {};
    return take(whole);
}

void ScriptedServer::Connection::send(std::string_view bytes)
{
    while (!gone_ && !bytes.empty())
    {
        const auto sent =
            secured_ ? SSL_write(secured_->ssl.get(), bytes.data(), static_cast<int>(bytes.size()))
                     : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        gone_ = sent <= 0;
        if (gone_)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
        const std::lock_guard lock(server_.mutex_);
        server_.sent_ += static_cast<std::size_t>(sent);
    }
}

void ScriptedServer::Connection::drip(std::string_view bytes, std::chrono::milliseconds pause)
{
    for (; !gone_ && !bytes.empty(); bytes.remove_prefix(1))
    {
        send(bytes.substr(0, 1));
        sleep(pause);
    }
}

void ScriptedServer::Connection::sendForever(std::string_view bytes,
                                             std::chrono::milliseconds pause)
{
    while (!gone_)
    {
        send(bytes);
        sleep(pause);
    }
}

void ScriptedServer::Connection::sleep(std::chrono::milliseconds pause)
{
    // A client that is gone is noticed within the pause, not after it.
    pollfd client{socket_, POLLRDHUP, 0};
    if (::poll(&client, 1, static_cast<int>(pause.count())) != 0)
        gone_ = true;
}

void ScriptedServer::Connection::hold()
{
    while (receive())
        buffer_.clear();
}

void ScriptedServer::Connection::close()
{
    if (secured_ && !gone_)
        SSL_shutdown(secured_->ssl.get());
    ::shutdown(socket_, SHUT_WR);
    secured_.reset();
    hold();
}

void ScriptedServer::Connection::reset()
{
    // What the client sent was taken by this machine, whether a script reads it or not.
    char unread[16 * 1024];
    const auto left = secured_ ? 0 : ::recv(socket_, unread, sizeof unread, MSG_DONTWAIT);
    if (left > 0)
        keep({unread, static_cast<std::size_t>(left)});
    const linger abort{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    // Closed by connecting to nothing: the number must not be used again before the destructor.
    const int placeholder = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::dup2(placeholder, socket_);
    ::close(placeholder);
    gone_ = true;
}
