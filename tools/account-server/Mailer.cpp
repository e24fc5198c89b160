#include "tools/account-server/Mailer.hpp"

#include "tools/account-server/Files.hpp"
#include "tools/account-server/OpenSSL.hpp"
#include "tools/account-server/Random.hpp"

#include <curl/curl.h>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

namespace accountserver
{
namespace asio = boost::asio;
namespace fs = std::filesystem;

namespace
{

constexpr auto extension = ".eml";
constexpr std::string_view codeLine = "Code: ";

/// A part of a file name that stands for one address alone, whatever characters it has.
std::string fileText(const std::string& email)
{
    constexpr std::size_t longest = 150;
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyz0123456789@._+-";
    std::string text;
    for (const auto character : comparable(email))
    {
        const auto byte = static_cast<unsigned char>(character);
        if (plain.find(character) != std::string_view::npos)
            text += character;
        else
            text += "%" + hexadecimal(&byte, 1);
    }
    return text.size() <= longest ? text : digestOf(text);
}

/// Rises with every mail, also within one tick of the clock and after a restart.
std::string sortableTime()
{
    static std::int64_t last = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    last =
        std::max(last + 1, static_cast<std::int64_t>(
                               std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
    const std::time_t seconds = last / 1'000'000;
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[40];
    const auto length = std::strftime(text, sizeof text, "%Y%m%dT%H%M%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%06dZ",
                  static_cast<int>(last % 1'000'000));
    return text;
}

struct Upload
{
    std::string text;
    std::size_t sent = 0;

    static std::size_t read(char* out, std::size_t size, std::size_t count, void* self)
    {
        auto& upload = *static_cast<Upload*>(self);
        const auto length = std::min(size * count, upload.text.size() - upload.sent);
        std::memcpy(out, upload.text.data() + upload.sent, length);
        upload.sent += length;
        return length;
    }
};

/// Blocks for ten seconds at most. An empty text when the server took the mail.
std::string sendBySMTP(const Mailer::Setup& setup, const std::string& email, std::string text)
{
    const std::unique_ptr<CURL, Releaser<curl_easy_cleanup>> curl(curl_easy_init());
    const std::unique_ptr<curl_slist, Releaser<curl_slist_free_all>> recipients(
        curl_slist_append(nullptr, ("<" + email + ">").c_str()));
    if (!curl || !recipients)
        return "out of memory";
    Upload upload{std::move(text)};
    curl_easy_setopt(curl.get(), CURLOPT_URL, ("smtp://" + setup.smtp).c_str());
    curl_easy_setopt(curl.get(), CURLOPT_MAIL_FROM, ("<" + setup.sender + ">").c_str());
    curl_easy_setopt(curl.get(), CURLOPT_MAIL_RCPT, recipients.get());
    curl_easy_setopt(curl.get(), CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_READFUNCTION, &Upload::read);
    curl_easy_setopt(curl.get(), CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 10L);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    const auto result = curl_easy_perform(curl.get());
    return result == CURLE_OK ? "" : curl_easy_strerror(result);
}

/// The answer of the mail thread. The timer, which lives on the server's thread, wakes the waiter.
struct Sending
{
    explicit Sending(const asio::any_io_executor& executor)
        : answered(executor, asio::steady_timer::time_point::max())
    {}

    asio::steady_timer answered;
    std::string error;
};

}  // namespace

Mailer::Mailer(Setup setup) : setup_(std::move(setup)), thread_(1)
{
    if (setup_.smtp.empty())
        makePrivateFolder(setup_.mailbox);
}

Mailer::~Mailer()
{
    finish();
}

void Mailer::finish()
{
    thread_.join();
}

asio::awaitable<bool> Mailer::deliver(Mail mail)
{
    if (setup_.smtp.empty())
    {
        keep(mail);
        co_return true;
    }
    const auto executor = co_await asio::this_coro::executor;
    const auto sending = std::make_shared<Sending>(executor);
    asio::post(thread_,
               [this, executor, sending, email = mail.email, text = compose(mail)]
               {
                   auto error = sendBySMTP(setup_, email, text);
                   asio::post(executor,
                              [sending, error = std::move(error)]
                              {
                                  sending->error = error;
                                  sending->answered.cancel();
                              });
               });
    co_await sending->answered.async_wait(asio::as_tuple(asio::use_awaitable));
    if (!sending->error.empty())
        std::fprintf(stderr, "mail was not sent: %s. Is %s an SMTP server?\n",
                     sending->error.c_str(), setup_.smtp.c_str());
    co_return sending->error.empty();
}

void Mailer::keep(const Mail& mail)
{
    writeFile(setup_.mailbox / (sortableTime() + "-" + fileText(mail.email) + extension),
              compose(mail));
    if (setup_.print)
    {
        std::printf("code for %s: %s\n", mail.email.c_str(), mail.code.c_str());
        std::fflush(stdout);
    }
}

std::string Mailer::compose(const Mail& mail) const
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char date[40];
    std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S +0000", &parts);
    const auto minutes = std::chrono::ceil<std::chrono::minutes>(mail.validFor).count();
    return "From: " + setup_.sender + "\r\nTo: " + mail.email +
           "\r\nSubject: Your one-time code\r\nDate: " + date +
           "\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n" +
           std::string(codeLine) + mail.code + "\r\n\r\nIt signs you in once, within " +
           std::to_string(minutes) + (minutes == 1 ? " minute.\r\n" : " minutes.\r\n");
}

std::optional<std::string> newestCode(const fs::path& state, const std::string& email)
{
    const auto ending = "-" + fileText(email) + extension;
    constexpr std::string_view time = "20260101T000000.000000Z";
    const auto length = time.size() + ending.size();
    fs::path newest;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(state / "mailbox", error))
    {
        const auto name = entry.path().filename().string();
        if (name.size() == length && name.ends_with(ending) && name > newest.filename().string())
            newest = entry.path();
    }
    const auto text = newest.empty() ? std::nullopt : readFile(newest);
    const auto place = text ? text->find(codeLine) : std::string::npos;
    if (place == std::string::npos)
        return std::nullopt;
    return text->substr(place + codeLine.size(), 6);
}

}  // namespace accountserver
