#pragma once

#include "tools/account-server/Settings.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace accountserver
{

/// The account server for development: HTTPS on loopback, its state in one folder.
///
/// The constructor opens the state folder, listens and writes the environment file; connections
/// wait until `run()`. All work is done on the thread that calls `run()`, SMTP apart. Throws
/// `Failure`.
class Server
{
public:
    explicit Server(Settings settings);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();

    /// Serves until `stop()`: answers that are under way get `graceTime` to end.
    void run();
    /// From any thread; also before `run()`.
    void stop();
    /// Lets SIGINT and SIGTERM stop the server.
    void stopOnSignals();

    std::uint16_t port() const;
    std::optional<std::uint16_t> controlPort() const;

private:
    class Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace accountserver
