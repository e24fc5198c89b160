#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "Tessera/API/AccountService.hpp"
#include "tests/support/GermanLocale.hpp"
#include "tests/support/ServicesForTest.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tessera;
using platform::SecretString;
using testing::HasSubstr;

namespace
{

/// The service as a host has it: the call on the main thread, the actor on another, the transfer on
/// a third.
struct Wire : testing::Test
{
    ServicesForTest services;
    ScriptedServer server{ScriptedServer::answering(ScriptedServer::ok("i.n.fo"))};
    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    AccountService service{environment(), client(), std::make_shared<platform::CurlURLSession>()};

    AccountEnvironment environment() const
    {
        auto made = AccountEnvironment::directPreview();
        made.endpointURL = *platform::URL::parse(server.address("/"));
        return made;
    }

    static AccountClient client()
    {
        AccountClient made;
        made.identifier = "editor";
        made.version = "7.2";
        made.device = {"Mac14,2", "14.5.0"};
        return made;
    }
};

}  // namespace

TEST_F(Wire, ARequestHasTheSameBytesWhateverTheHostsLocale)
{
    const GermanLocale locale;
    services.device->languages = {"de-CH", "en-US"};
    const auto token = std::string(1200, 't');
    platform::runToEnd(loop, service.authenticate(SecretString(token)));

    EXPECT_EQ(platform::runToEnd(loop, service.info()), SecretString("i.n.fo"));
    platform::runToEnd(loop, service.consentToTerms(std::string(1100, 'r'), "en"));

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0],
              "GET /v2/account HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nContent-Type: application/json\r\n"
                  "User-Agent: Editor/7.2 Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Direct)\r\n"
                  "Accept-Language: de-CH;q=1.0, en-US;q=0.8\r\n"
                  "Accept: application/jwt\r\nAuthorization: Bearer " +
                  token + "\r\n\r\n");
    EXPECT_THAT(requests[1], HasSubstr("\r\nContent-Length: 1131\r\n"));
}

TEST_F(Wire, WithoutLanguagesTheHeaderIsSentWithAnEmptyValue)
{
    services.device->languages = {};

    platform::runToEnd(loop, service.requestOneTimeCode(SecretString("a@b.c")));

    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_THAT(server.requests().front(), HasSubstr("\r\nAccept-Language:\r\n"));
    EXPECT_THAT(server.requests().front(), HasSubstr("\r\n\r\n{\"email\":\"a@b.c\"}"));
}
