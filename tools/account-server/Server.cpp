#include "tools/account-server/Server.hpp"

#include "tools/account-server/Accounts.hpp"
#include "tools/account-server/Api.hpp"
#include "tools/account-server/Authority.hpp"
#include "tools/account-server/Clients.hpp"
#include "tools/account-server/Connection.hpp"
#include "tools/account-server/Control.hpp"
#include "tools/account-server/Environment.hpp"
#include "tools/account-server/Failure.hpp"
#include "tools/account-server/Faults.hpp"
#include "tools/account-server/Files.hpp"
#include "tools/account-server/Mailer.hpp"
#include "tools/account-server/Routes.hpp"
#include "tools/account-server/Store.hpp"
#include "tools/account-server/Tokens.hpp"

#include <openssl/ssl.h>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <cstdio>
#include <list>

namespace accountserver
{
namespace asio = boost::asio;
using asio::ip::tcp;

namespace
{

constexpr auto quietly = asio::as_tuple(asio::use_awaitable);
constexpr std::uint64_t controlBodyLimit = 256 * 1024 * 1024;

void writeToLog(const std::string& line)
{
    std::fprintf(stderr, "%s\n", line.c_str());
}

void configure(asio::ssl::context& tls, const Authority& authority)
{
    auto* context = tls.native_handle();
    constexpr unsigned char name[] = "tessera-account-server";
    const bool set = SSL_CTX_set_min_proto_version(context, TLS1_3_VERSION) == 1 &&
                     SSL_CTX_use_certificate(context, authority.leaf()) == 1 &&
                     SSL_CTX_use_PrivateKey(context, authority.leafKey()) == 1 &&
                     SSL_CTX_set_session_id_context(context, name, sizeof name - 1) == 1;
    demand(set, "set up TLS");
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
}

const std::filesystem::path& prepared(const std::filesystem::path& folder)
{
    makePrivateFolder(folder);
    return folder;
}

}  // namespace

/// The order of the members is the order of dependence: what a suspended connection refers to must
/// outlive `io_`, which destroys the connections.
class Server::Parts
{
public:
    explicit Parts(Settings settings)
        : settings_(std::move(settings)),
          lock_(prepared(settings_.state)),
          store_(settings_.state / "accounts.sqlite"),
          authority_(settings_.state, std::time(nullptr)),
          tokens_(settings_.state / "token.key", settings_.algorithm, clock_),
          accounts_(store_, tokens_, clock_,
                    {settings_.codeLifetime, settings_.codesPerHour, settings_.codeTries,
                     settings_.reauthenticateAfter}),
          routes_(accounts_, Clients(settings_.clients)),
          mailer_(
              {settings_.state / "mailbox", settings_.smtp, settings_.sender, settings_.printMail}),
          api_(routes_, faults_, mailer_),
          control_({store_, accounts_, clock_, faults_, api_, service_}),
          tls_(asio::ssl::context::tls_server),
          io_(1),
          grace_(io_),
          signals_(io_)
    {
        if (store_.currentTerms().empty())
            accounts_.publishTerms(settings_.termsRevision);
        configure(tls_, authority_);
        prepare(service_, settings_.bodyLimit);
        service_.tls = &tls_;
        service_.handler = [this](Request request) { return api_.handle(std::move(request)); };
        if (settings_.logRequests)
            service_.log = writeToLog;
        prepare(controlService_, controlBodyLimit);
        controlService_.handler = [this](Request request)
        { return control_.handle(std::move(request)); };

        listen(service_, settings_.port, true, "--port");
        port = acceptors_.front().local_endpoint().port();
        if (settings_.controlPort)
        {
            listen(controlService_, *settings_.controlPort, false, "--control");
            controlPort = acceptors_.back().local_endpoint().port();
        }
        writeFiles();
    }

    ~Parts()
    {
        // The end of a connection must not reach for what is gone by then.
        service_.whenEmpty = nullptr;
        controlService_.whenEmpty = nullptr;
        mailer_.finish();
        std::error_code ignored;
        if (!settings_.readyFile.empty())
            std::filesystem::remove(settings_.readyFile, ignored);
    }

    void run() { io_.run(); }

    void stop()
    {
        asio::post(io_, [this] { wind(); });
    }

    void stopOnSignals()
    {
        signals_.add(SIGINT);
        signals_.add(SIGTERM);
        signals_.async_wait(
            [this](const boost::system::error_code& error, int)
            {
                if (!error)
                    wind();
            });
    }

    std::uint16_t port = 0;
    std::optional<std::uint16_t> controlPort;

private:
    void prepare(Service& service, std::uint64_t bodyLimit)
    {
        service.idleTime = settings_.idleTime;
        service.headerLimit = settings_.headerLimit;
        service.bodyLimit = bodyLimit;
        service.whenEmpty = [this] { endGraceWhenEmpty(); };
    }

    /// On 127.0.0.1 and, for `both`, at the same port on ::1 where the machine has it.
    void listen(Service& service, std::uint16_t wanted, bool both, const char* option)
    {
        constexpr int attempts = 20;
        for (int attempt = 1;; ++attempt)
        {
            boost::system::error_code error;
            tcp::acceptor first(io_);
            bind(first, tcp::endpoint(asio::ip::address_v4::loopback(), wanted), error);
            if (error)
                throw Failure(ExitCode::address, "Port " + std::to_string(wanted) +
                                                     " cannot be used (" + error.message() +
                                                     "). Choose another with " + option +
                                                     ", or 0 for a free one.");
            tcp::acceptor second(io_);
            if (both)
                bind(second,
                     tcp::endpoint(asio::ip::address_v6::loopback(), first.local_endpoint().port()),
                     error);
            // A port that is free on one of the two alone is no use, but another one may be.
            if (error == asio::error::address_in_use && wanted == 0 && attempt < attempts)
                continue;
            if (error == asio::error::address_in_use)
                throw Failure(ExitCode::address, "Port " + std::to_string(wanted) +
                                                     " is taken on ::1. Choose another with " +
                                                     option + ", or 0 for a free one.");
            serve(std::move(first), service);
            if (both && !error)
                serve(std::move(second), service);
            return;
        }
    }

    static void bind(tcp::acceptor& acceptor, const tcp::endpoint& endpoint,
                     boost::system::error_code& error)
    {
        acceptor.open(endpoint.protocol(), error);
        if (!error)
            acceptor.set_option(tcp::acceptor::reuse_address(true), error);
        if (!error)
            acceptor.bind(endpoint, error);
        if (!error)
            acceptor.listen(asio::socket_base::max_listen_connections, error);
    }

    void serve(tcp::acceptor acceptor, Service& service)
    {
        acceptors_.push_back(std::move(acceptor));
        asio::co_spawn(io_, acceptAll(&acceptors_.back(), &service, settings_.connectionLimit),
                       asio::detached);
    }

    static asio::awaitable<void> acceptAll(tcp::acceptor* acceptor, Service* service,
                                           std::size_t limit)
    {
        asio::steady_timer pause(acceptor->get_executor());
        while (acceptor->is_open())
        {
            auto [error, socket] = co_await acceptor->async_accept(quietly);
            if (!error && service->open.size() < limit)
                Connection::start(std::move(socket), *service);
            if (!error || error == asio::error::operation_aborted)
                continue;
            // Out of descriptors, most likely: without a pause this would spin.
            pause.expires_after(std::chrono::milliseconds(100));
            co_await pause.async_wait(quietly);
        }
    }

    void writeFiles()
    {
        const auto file = settings_.environmentFile.empty() ? settings_.state / "environment.json"
                                                            : settings_.environmentFile;
        writeFile(file, environmentText(settings_.name, port, tokens_, authority_), 0644);
        if (!settings_.readyFile.empty())
            writeFile(settings_.readyFile, serverAddress(port) + "\n", 0644);
    }

    void wind()
    {
        if (service_.stopping)
            return;
        signals_.cancel();
        for (auto& acceptor : acceptors_)
            acceptor.close();
        for (auto* service : {&service_, &controlService_})
        {
            service->stopping = true;
            for (auto* connection : service->open)
                connection->retire();
        }
        grace_.expires_after(settings_.graceTime);
        grace_.async_wait(
            [this](const boost::system::error_code& error)
            {
                if (!error)
                    io_.stop();
            });
        endGraceWhenEmpty();
    }

    void endGraceWhenEmpty()
    {
        if (service_.open.empty() && controlService_.open.empty())
            grace_.cancel();
    }

    Settings settings_;
    FolderLock lock_;
    ServerClock clock_;
    Store store_;
    Authority authority_;
    Tokens tokens_;
    Accounts accounts_;
    Routes routes_;
    Faults faults_;
    Mailer mailer_;
    Api api_;
    Service service_;
    Service controlService_;
    Control control_;
    asio::ssl::context tls_;
    asio::io_context io_;
    asio::steady_timer grace_;
    asio::signal_set signals_;
    std::list<tcp::acceptor> acceptors_;
};

Server::Server(Settings settings) : parts_(std::make_unique<Parts>(std::move(settings))) {}
Server::~Server() = default;

void Server::run()
{
    parts_->run();
}

void Server::stop()
{
    parts_->stop();
}

void Server::stopOnSignals()
{
    parts_->stopOnSignals();
}

std::uint16_t Server::port() const
{
    return parts_->port;
}

std::optional<std::uint16_t> Server::controlPort() const
{
    return parts_->controlPort;
}

}  // namespace accountserver
