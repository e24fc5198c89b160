#include "tests/tools/account-server/TestServer.hpp"
#include "tools/account-server/Mailer.hpp"

#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <string>
#include <thread>

namespace accountserver
{
namespace
{

namespace asio = boost::asio;
using asio::ip::tcp;

/// Takes one mail by SMTP.
class PostOffice
{
public:
    std::string address() const
    {
        return "127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port());
    }
    std::string mail()
    {
        thread_.join();
        return mail_;
    }

private:
    void serve()
    {
        auto socket = acceptor_.accept();
        std::string text;
        const auto say = [&](const std::string& line)
        { asio::write(socket, asio::buffer(line + "\r\n")); };
        const auto take = [&](const std::string& end)
        {
            const auto size = asio::read_until(socket, asio::dynamic_buffer(text), end);
            auto taken = text.substr(0, size);
            text.erase(0, size);
            return taken;
        };
        say("220 post office");
        for (;;)
        {
            const auto line = take("\r\n");
            mail_ += line;
            if (line.starts_with("QUIT"))
                break;
            if (line.starts_with("DATA"))
            {
                say("354 go on");
                mail_ += take("\r\n.\r\n");
            }
            say("250 fine");
        }
        say("221 bye");
    }

    asio::io_context io_;
    tcp::acceptor acceptor_{io_, {asio::ip::address_v4::loopback(), 0}};
    std::string mail_;
    std::jthread thread_{[this] { serve(); }};
};

TEST(Mailbox, KeepsAddressesApartWhateverTheyHold)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    const std::string addresses[] = {
        "anna@example.org",       "../../etc/passwd@example.org",         "anna/@example.org",
        "\xC3\xA4nn@example.org", std::string(231, '/') + "@example.org",
    };
    std::vector<std::string> codes;
    for (const auto& address : addresses)
    {
        server.requestCode(address);
        codes.push_back(server.newestCode(address));
    }
    for (std::size_t i = 0; i < codes.size(); ++i)
        EXPECT_EQ(server.signIn(addresses[i], codes[i]).status, 200) << addresses[i];
    EXPECT_EQ(newestCode(folder.path(), "nobody@example.org"), std::nullopt);
}

TEST(SMTP, BringsTheCodeInsteadOfTheMailbox)
{
    TemporaryFolder folder;
    PostOffice office;
    auto settings = TestServer::settings(folder.path());
    settings.smtp = office.address();
    TestServer server(settings);
    server.requestCode("anna@example.org");

    const auto mail = office.mail();
    EXPECT_NE(mail.find("RCPT TO:<anna@example.org>"), std::string::npos) << mail;
    const auto place = mail.find("Code: ");
    ASSERT_NE(place, std::string::npos) << mail;
    EXPECT_EQ(server.signIn("anna@example.org", mail.substr(place + 6, 6)).status, 200);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "mailbox"));
}

TEST(SMTP, FailureIsToldToTheClient)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path());
    settings.smtp = "127.0.0.1:1";  // where nobody listens
    TestServer server(settings);
    const auto reply =
        server.call({"POST", "/v2/auth/one-time-code", R"({"email":"anna@example.org"})", "", {}});
    EXPECT_EQ(reply.status, 502);
    EXPECT_EQ(reply.code(), "mail_failed");
}

}  // namespace
}  // namespace accountserver
