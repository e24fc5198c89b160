#include "tools/account-server/Connection.hpp"

#include "tools/account-server/Routes.hpp"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>

#include <array>
#include <memory>
#include <optional>
#include <type_traits>

namespace accountserver
{
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace
{

using TLSStream = asio::ssl::stream<beast::tcp_stream>;

constexpr auto quietly = asio::as_tuple(asio::use_awaitable);
constexpr auto handshakeTime = std::chrono::seconds(10);
constexpr auto closingTime = std::chrono::seconds(2);

Request requestFrom(http::request<http::string_body>&& message)
{
    Request request;
    request.method = std::string(message.method_string());
    const std::string target(message.target());
    const auto mark = target.find('?');
    request.path = target.substr(0, mark);
    if (mark != std::string::npos)
        request.query = target.substr(mark + 1);
    for (const auto& field : message)
    {
        std::string name(field.name_string());
        request.headers.emplace(comparable(std::move(name)), std::string(field.value()));
    }
    request.body = std::move(message.body());
    return request;
}

/// What a request that is no proper HTTP, or too large, is told. Nothing when the client is gone.
std::optional<Response> answerTo(const beast::error_code& error)
{
    if (error == http::error::body_limit)
        return errorResponse(413, "too_large", "The body is too large.");
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
        return errorResponse(431, "headers_too_large", "The header is too large.");
    const bool gone = error == http::error::end_of_stream || error == http::error::partial_message;
    if (error.category() == http::make_error_code(http::error::bad_method).category() && !gone)
        return errorResponse(400, "malformed_request", "The request is not proper HTTP.");
    return std::nullopt;
}

struct Wire
{
    std::string text;
    std::size_t headerSize = 0;
};

Wire wireOf(Response response, Delivery::Framing framing, bool keepAlive)
{
    http::response<http::string_body> message;
    message.result(static_cast<unsigned>(response.status));
    for (const auto& [name, value] : response.headers)
        message.set(name, value);
    message.set(http::field::cache_control, "no-store");
    if (!response.contentType.empty())
        message.set(http::field::content_type, response.contentType);
    message.keep_alive(keepAlive);
    const bool mayHaveBody = response.status != 204 && response.status != 304;
    if (mayHaveBody)
        message.body() = std::move(response.body);
    if (mayHaveBody && framing == Delivery::Framing::chunked)
        message.chunked(true);
    if (mayHaveBody && framing == Delivery::Framing::length)
        message.content_length(message.body().size());

    Wire wire;
    http::response_serializer<http::string_body> serializer(message);
    serializer.split(true);
    beast::error_code error;
    while (!serializer.is_done() && !error)
    {
        const auto append = [&](beast::error_code&, const auto& buffers)
        {
            for (const auto buffer : beast::buffers_range_ref(buffers))
                wire.text.append(static_cast<const char*>(buffer.data()), buffer.size());
            serializer.consume(beast::buffer_bytes(buffers));
        };
        serializer.next(error, append);
        if (serializer.is_header_done() && wire.headerSize == 0)
            wire.headerSize = wire.text.size();
    }
    return wire;
}

/// Segments that are long enough to be a token are not for the log, nor are unprintable bytes.
std::string loggable(const std::string& path)
{
    constexpr std::size_t longest = 40;
    std::string text;
    std::size_t segment = 0;
    for (const auto character : path)
    {
        segment = character == '/' ? 0 : segment + 1;
        if (segment == longest)
            text += "...";
        if (segment < longest)
            text += character > 0x20 && character < 0x7F ? character : '?';
    }
    return text.substr(0, 200);
}

template <class Stream>
class StreamConnection final : public Connection,
                               public std::enable_shared_from_this<StreamConnection<Stream>>
{
public:
    template <class... Arguments>
    explicit StreamConnection(Service& service, Arguments&&... arguments)
        : service_(service), stream_(std::forward<Arguments>(arguments)...)
    {
        service_.open.insert(this);
    }

    ~StreamConnection() override
    {
        service_.open.erase(this);
        if (service_.stopping && service_.open.empty() && service_.whenEmpty)
            service_.whenEmpty();
    }

    void run()
    {
        asio::co_spawn(stream_.get_executor(), serve(this->shared_from_this()), asio::detached);
    }

    void retire() override
    {
        if (waiting_)
            tcp().close();
    }

private:
    using Parser = http::request_parser<http::string_body>;

    beast::tcp_stream& tcp() { return beast::get_lowest_layer(stream_); }

    static asio::awaitable<void> serve(std::shared_ptr<StreamConnection> self)
    {
        const bool ready = co_await self->open();
        bool goesOn = ready;
        while (goesOn)
        {
            goesOn = co_await self->exchange();
            goesOn = goesOn && !self->service_.stopping;
        }
        if (ready)
            co_await self->close();
    }

    asio::awaitable<bool> open()
    {
        beast::error_code ignored;
        tcp().socket().set_option(asio::ip::tcp::no_delay(true), ignored);
        if constexpr (std::is_same_v<Stream, TLSStream>)
        {
            waiting_ = true;
            tcp().expires_after(handshakeTime);
            const auto [error] = co_await stream_.async_handshake(TLSStream::server, quietly);
            waiting_ = false;
            co_return !error;
        }
        co_return true;
    }

    /// One request and its answer. False when the connection is to be closed.
    asio::awaitable<bool> exchange()
    {
        Parser parser;
        parser.header_limit(service_.headerLimit);
        parser.body_limit(service_.bodyLimit);
        tcp().expires_after(service_.idleTime);
        waiting_ = true;
        const auto [error, size] = co_await http::async_read(stream_, buffer_, parser, quietly);
        waiting_ = false;
        tcp().expires_never();

        const auto started = std::chrono::steady_clock::now();
        Outcome outcome;
        bool keepAlive = false;
        std::string subject = "-";
        bool bodiless = false;
        if (error)
        {
            auto answer = answerTo(error);
            if (!answer)
                co_return false;
            outcome.response = *std::move(answer);
        }
        else
        {
            keepAlive = parser.get().keep_alive();
            bodiless = parser.get().method() == http::verb::head;
            auto request = requestFrom(parser.release());
            subject = request.method + " " + loggable(request.path);
            outcome = co_await service_.handler(std::move(request));
        }
        const int status = outcome.response.status;
        const auto kind = outcome.delivery.kind;
        keepAlive = keepAlive && !service_.stopping;
        const bool goesOn = co_await deliver(std::move(outcome), keepAlive, bodiless);
        if (service_.log)
        {
            const auto spent = std::chrono::steady_clock::now() - started;
            const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(spent).count();
            service_.log(subject + " " + std::to_string(status) + " " + std::to_string(time) +
                         (kind == Delivery::Kind::whole ? " ms" : " ms (fault)"));
        }
        co_return goesOn;
    }

    asio::awaitable<bool> deliver(Outcome outcome, bool keepAlive, bool bodiless)
    {
        const auto delivery = outcome.delivery;
        using Kind = Delivery::Kind;
        if (delivery.kind == Kind::reset)
        {
            beast::error_code ignored;
            tcp().socket().set_option(asio::socket_base::linger(true, 0), ignored);
            tcp().close();
            co_return false;
        }
        if (delivery.kind == Kind::raw)
        {
            co_await write(std::move(outcome.response.body));
            co_return false;
        }
        keepAlive = keepAlive && delivery.framing != Delivery::Framing::close;
        auto wire = wireOf(std::move(outcome.response), delivery.framing, keepAlive);
        if (bodiless)
            wire.text.resize(wire.headerSize);
        if (delivery.kind == Kind::partOfHeaders)
            wire.text.resize(wire.headerSize / 2);
        if (delivery.kind == Kind::partOfBody)
            wire.text.resize(wire.headerSize + (wire.text.size() - wire.headerSize) / 2);
        bool written = false;
        if (delivery.kind == Kind::drip)
            written = co_await drip(std::move(wire.text), delivery);
        else
            written = co_await write(std::move(wire.text));
        const bool whole = delivery.kind == Kind::whole || delivery.kind == Kind::drip;
        co_return written&& whole&& keepAlive;
    }

    asio::awaitable<bool> write(std::string text)
    {
        tcp().expires_after(service_.idleTime);
        const auto [error, size] = co_await asio::async_write(stream_, asio::buffer(text), quietly);
        tcp().expires_never();
        co_return !error;
    }

    asio::awaitable<bool> drip(std::string text, Delivery delivery)
    {
        asio::steady_timer timer(stream_.get_executor());
        for (std::size_t sent = 0; sent < text.size(); sent += delivery.pieceSize)
        {
            const bool written = co_await write(text.substr(sent, delivery.pieceSize));
            if (!written || service_.stopping)
                co_return false;
            timer.expires_after(delivery.interval);
            co_await timer.async_wait(quietly);
        }
        co_return true;
    }

    /// Tells the client that nothing follows, then reads what it still sends: closing a socket with
    /// unread bytes resets it, and the client would lose the answer.
    asio::awaitable<void> close()
    {
        if (!tcp().socket().is_open())
            co_return;
        tcp().expires_after(closingTime);
        if constexpr (std::is_same_v<Stream, TLSStream>)
            co_await stream_.async_shutdown(quietly);
        if (!tcp().socket().is_open())
            co_return;
        beast::error_code ignored;
        tcp().socket().shutdown(asio::socket_base::shutdown_send, ignored);
        std::array<char, 4096> unread{};
        bool more = true;
        while (more)
        {
            const auto [error, size] =
                co_await tcp().async_read_some(asio::buffer(unread), quietly);
            more = !error;
        }
        tcp().close();
    }

    Service& service_;
    Stream stream_;
    beast::flat_buffer buffer_;
    bool waiting_ = false;
};

}  // namespace

void Connection::start(asio::ip::tcp::socket socket, Service& service)
{
    ++service.accepted;
    if (service.tls != nullptr)
        std::make_shared<StreamConnection<TLSStream>>(service, std::move(socket), *service.tls)
            ->run();
    else
        std::make_shared<StreamConnection<beast::tcp_stream>>(service, std::move(socket))->run();
}

}  // namespace accountserver
