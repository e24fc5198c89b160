#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

class TestCertificate;
struct ssl_ctx_st;

/// A server on a loopback port that does to each connection what its script says, in whatever way
/// HTTP forbids, and that keeps the bytes which it was sent.
///
/// A script runs on a thread of its own and is written straight on: it ends by itself when the
/// client is gone or the server is destroyed, because then nothing that it asks for waits any more.
class ScriptedServer
{
public:
    class Connection;
    using Script = std::function<void(Connection&)>;

    explicit ScriptedServer(Script script);

    /// The same over TLS. The certificate, or the context that has one, must live longer.
    ScriptedServer(Script script, const TestCertificate& certificate);
    ScriptedServer(Script script, ssl_ctx_st* context);

    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    /// Gives the same bytes to every request, and keeps the connection open.
    static Script answering(std::string bytes);

    /// An answer with status 200 and this body.
    static std::string ok(std::string_view body);

    int port() const { return port_; }

    /// "http://127.0.0.1:40001/v2/account", or with https.
    std::string address(std::string_view path = "/v2/account") const;

    /// What `readRequest` read, in order.
    std::vector<std::string> requests() const;

    /// All bytes that came, over TLS the decrypted ones, by connection.
    std::vector<std::string> received() const;

    /// The bytes that were sent, or lie in the buffers of the machine.
    std::size_t sent() const;

    /// How many connections were accepted, and how many of them have not ended.
    int accepted() const;
    int open() const;

    /// Waits up to ten seconds; false when it is still not so.
    bool waitForRequests(std::size_t count) const;
    bool waitForAccepted(int count) const;
    bool waitForOpen(int count) const;

private:
    void accept();
    void serve(Connection& connection);
    bool waitUntil(const std::function<bool()>& condition) const;

    const Script script_;
    ssl_ctx_st* const context_;
    const int listener_;
    int port_ = 0;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::list<Connection> connections_;
    std::vector<std::string> requests_;
    std::size_t sent_ = 0;
    int open_ = 0;
    bool stopping_ = false;
    std::thread thread_;
};

/// One connection, for the script that serves it.
class ScriptedServer::Connection
{
public:
    Connection(ScriptedServer& server, int socket);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// The head and as much of a body as it announces; empty when the client is gone before.
    std::string readRequest();

    /// The head alone.
    std::string readHead();

    void send(std::string_view bytes);

    /// Sends it byte by byte, with a pause after each.
    void drip(std::string_view bytes, std::chrono::milliseconds pause);

    /// Sends it again and again until the client is gone.
    void sendForever(std::string_view bytes, std::chrono::milliseconds pause = {});

    /// Waits, but not for longer than the client is there.
    void sleep(std::chrono::milliseconds pause);

    /// Whether the client was there when something was last asked for.
    bool isOpen() const { return !gone_; }

    /// Reads and forgets until the client is gone.
    void hold();

    /// Ends the own side; what the client still sends is read and forgotten.
    void close();

    /// Ends the connection so that the client sees a reset.
    void reset();

private:
    friend class ScriptedServer;
    struct Secured;

    bool secure(ssl_ctx_st* context);
    bool receive();
    void keep(std::string_view bytes);
    std::string take(std::size_t length);

    ScriptedServer& server_;
    int socket_;
    bool gone_ = false;
    std::string buffer_;
    std::string received_;
    std::unique_ptr<Secured> secured_;
    std::thread thread_;
};
