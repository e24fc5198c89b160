#include "tests/tools/account-server/TestServer.hpp"

#include <gtest/gtest.h>
#include <boost/json/value.hpp>

namespace accountserver
{
namespace
{

constexpr auto anna = "anna@example.org";

struct Operations : testing::Test
{
    TemporaryFolder folder;
    TestServer server{folder.path()};

    Reply account(const std::string& token) const
    {
        return server.call({"GET", "/v2/account", "", token, {"Accept: application/jwt"}});
    }
    boost::json::value info(const std::string& token) const
    {
        return verifiedPayload(account(token).body, server.environment());
    }
    Reply consent(const std::string& token, const std::string& revision) const
    {
        return server.call({"POST",
                            "/v2/legal/terms/consent",
                            R"({"revision":")" + revision + R"(","language":"en"})",
                            token,
                            {}});
    }
    Reply newsletter(const std::string& token) const
    {
        return server.call({"POST", "/v2/account/newsletter", "", token, {}});
    }
    Reply remove(const std::string& path, const std::string& token) const
    {
        return server.call({"DELETE", path, "", token, {}});
    }
    std::string anonymousToken() const
    {
        const auto made = server.control("POST /anonymous-accounts").json();
        return std::string(made.at("token").as_string());
    }
};

TEST_F(Operations, LeadFromTheAddressToTheSignedInformation)
{
    server.requestCode(anna);
    const auto signedIn = server.signIn("Anna@Example.org", server.newestCode(anna));
    ASSERT_EQ(signedIn.status, 200);
    EXPECT_EQ(signedIn.headers.value("content-type"), "application/jwt");
    const auto token = verifiedPayload(signedIn.body, server.environment());
    EXPECT_TRUE(token.at("session").is_string());

    const auto answer = account(signedIn.body);
    EXPECT_EQ(answer.headers.value("content-type"), "application/jwt");
    const auto before = info(signedIn.body);
    EXPECT_EQ(before.at("user"), token.at("user"));
    EXPECT_EQ(before.at("uuid"), token.at("uuid"));
    EXPECT_EQ(before.at("uuid").as_string().size(), 36u);
    EXPECT_EQ(before.at("email"), "Anna@Example.org");
    EXPECT_EQ(before.at("aud"), "editor.mac");
    EXPECT_TRUE(before.at("iat").is_int64());
    EXPECT_EQ(before.at("terms").at("accepted_revision"), "");

    const std::string revision(before.at("terms").at("current_revision").as_string());
    EXPECT_EQ(consent(signedIn.body, revision).status, 204);
    EXPECT_EQ(info(signedIn.body).at("terms").at("accepted_revision"), revision.c_str());
    EXPECT_EQ(newsletter(signedIn.body).status, 204);
    EXPECT_EQ(newsletter(signedIn.body).status, 204);
    EXPECT_EQ(remove("/v2/auth", signedIn.body).status, 204);
    EXPECT_EQ(account(signedIn.body).code(), "unauthorized");
}

TEST_F(Operations, SignInLeadsBackToTheSameAccountUntilItIsDeleted)
{
    const auto first = info(server.signedIn(anna)).at("user");
    const auto again = server.signedIn("ANNA@example.org");
    EXPECT_EQ(info(again).at("user"), first);

    EXPECT_EQ(remove("/v2/account", again).status, 204);
    EXPECT_EQ(account(again).code(), "unauthorized");
    EXPECT_NE(info(server.signedIn(anna)).at("user"), first);
}

TEST_F(Operations, TellTheAudienceFromTheDeviceInTheUserAgent)
{
    const std::string token = server.signedIn(anna);
    const struct
    {
        const char* agent;
        const char* expected;  ///< audience, or the code of the refusal
    } cases[] = {
        {"Tessera/1.0 Account/2026-10-17-rhubarb (iPhone15,2; 17.0; Apple)", "tessera.iphone"},
        {"Editor/1.0-alpha Account/2026-10-17-rhubarb (iPad13,1; 1; Direct)", "editor.ipad"},
        {"Nobody/1.0 Account/2026-10-17-rhubarb (X; 1; Direct)", "unknown_client"},
        {"Editor/1.0 Account/2025-01-01-apple (X; 1; Direct)", "unknown_api_version"},
        {"Editor/1.0 Account/2026-10-17-rhubarb (X; 1; Other)", "unreadable_user_agent"},
        {"curl/7.88.1", "unreadable_user_agent"},
    };
    for (const auto& [agent, expected] : cases)
    {
        const auto reply =
            server.call({"GET", "/v2/account", "", token, {std::string("User-Agent: ") + agent}});
        if (reply.status == 200)
        {
            EXPECT_EQ(verifiedPayload(reply.body, server.environment()).at("aud"), expected);
        }
        else
        {
            EXPECT_EQ(reply.status, 400) << agent;
            EXPECT_EQ(reply.code(), expected) << agent;
        }
    }
}

TEST_F(Operations, RefuseWhatIsNoProperRequest)
{
    const std::string token = server.signedIn(anna);
    const std::string codes = "/v2/auth/one-time-code";
    const std::string consents = "/v2/legal/terms/consent";
    const std::string email = R"({"email":"anna@example.org"})";
    const struct
    {
        Call call;
        int status;
        const char* code;
    } cases[] = {
        {{"GET", "/v2/accounts", "", token, {}}, 404, "not_found"},
        {{"PUT", "/v2/auth", "{}", token, {}}, 405, "method_not_allowed"},
        {{"POST", codes, email, "", {"Content-Type: text/plain"}}, 415, "unsupported_media_type"},
        {{"POST", codes, email, "", {"Content-Type: Application/JSON; charset=utf-8"}}, 204, ""},
        {{"POST", codes, "{", "", {}}, 400, "malformed_json"},
        {{"POST", codes, R"({"email":7})", "", {}}, 400, "invalid_request"},
        {{"POST", codes, R"({"email":"a@b\r\nBcc: c@d"})", "", {}}, 400, "invalid_email"},
        {{"POST", "/v2/auth", email, "", {}}, 400, "invalid_request"},
        {{"POST", "/v2/auth", email, "", {"Accept: text/html"}}, 406, "not_acceptable"},
        {{"GET",
          "/v2/account",
          "",
          token,
          {"Accept: text/html, application/"
           "*;q=0.5"}},
         200,
         ""},
        {{"GET", "/v2/account", "", token + "x", {}}, 401, "unauthorized"},
        {{"DELETE", "/v2/auth", "", "", {}}, 401, "unauthorized"},
        {{"POST", consents, R"({"revision":"1","language":"en"})", "", {}}, 401, "unauthorized"},
        {{"POST", "/v2/auth", R"({"email":"a@b","oneTimeCode":"1"})", token + "x", {}},
         401,
         "unauthorized"},
        {{"POST", codes, std::string(70'000, ' '), "", {}}, 413, "too_large"},
        {{"GET", "/v2/account", "", std::string(20'000, 'x'), {}}, 431, "headers_too_large"},
    };
    for (const auto& [call, status, code] : cases)
    {
        const auto reply = server.call(call);
        const auto what = call.method + " " + call.path + " " + call.body.substr(0, 80);
        EXPECT_EQ(reply.status, status) << what << reply.body;
        if (status >= 400)
        {
            EXPECT_EQ(reply.code(), code) << what;
        }
    }
}

TEST_F(Operations, TakeACodeOnceInTimeAndAfterFewWrongTries)
{
    server.requestCode(anna);
    const auto code = server.newestCode(anna);
    const std::string wrong = code == "000000" ? "000001" : "000000";
    EXPECT_EQ(server.signIn(anna, wrong).code(), "invalid_code");
    EXPECT_EQ(server.signIn("other@example.org", code).code(), "invalid_code");
    EXPECT_EQ(server.signIn(anna, code).status, 200);
    EXPECT_EQ(server.signIn(anna, code).code(), "invalid_code");

    server.requestCode(anna);
    const auto replaced = server.newestCode(anna);
    server.requestCode(anna);
    const auto newest = server.newestCode(anna);
    if (replaced != newest)
    {
        EXPECT_EQ(server.signIn(anna, replaced).code(), "invalid_code");
    }
    server.advance(599);
    EXPECT_EQ(server.signIn(anna, newest).status, 200);

    server.requestCode(anna);
    server.advance(601);
    EXPECT_EQ(server.signIn(anna, server.newestCode(anna)).code(), "expired_code");

    server.requestCode(anna);
    const auto spoiled = server.newestCode(anna);
    const std::string notIt = spoiled == "000000" ? "000001" : "000000";
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(server.signIn(anna, notIt).status, 403);
    EXPECT_EQ(server.signIn(anna, spoiled).status, 429);
    EXPECT_EQ(server.signIn(anna, spoiled).code(), "too_many_tries");
    server.signedIn(anna);
}

TEST_F(Operations, AttachTheAddressToTheAnonymousAccountWhoseTokenComesAlong)
{
    const auto anonymous = anonymousToken();
    const auto before = info(anonymous);
    EXPECT_FALSE(before.as_object().contains("email"));
    EXPECT_EQ(newsletter(anonymous).code(), "email_required");

    server.requestCode(anna);
    const auto attached = server.signIn(anna, server.newestCode(anna), anonymous);
    ASSERT_EQ(attached.status, 200);
    EXPECT_EQ(info(attached.body).at("user"), before.at("user"));
    EXPECT_EQ(info(attached.body).at("email"), anna);
    EXPECT_EQ(info(anonymous).at("email"), anna);

    // A second anonymous account cannot have the address, but the code stays good.
    server.requestCode(anna);
    const auto code = server.newestCode(anna);
    const auto refused = server.signIn(anna, code, anonymousToken());
    EXPECT_EQ(refused.status, 409);
    EXPECT_EQ(refused.code(), "email_in_use");
    EXPECT_EQ(server.signIn(anna, code).status, 200);

    server.requestCode("bert@example.org");
    const auto other = server.newestCode("bert@example.org");
    EXPECT_EQ(server.signIn("bert@example.org", other, attached.body).code(), "already_signed_in");
}

TEST_F(Operations, NeedConsentToTheTermsOfTheDay)
{
    const auto token = server.signedIn(anna);
    EXPECT_EQ(newsletter(token).status, 403);
    EXPECT_EQ(newsletter(token).code(), "no_consent");
    EXPECT_EQ(consent(token, "2026-10-01").status, 204);
    EXPECT_EQ(newsletter(token).status, 204);

    server.control("POST /terms", R"({"revision":"2"})");
    EXPECT_EQ(info(token).at("terms").at("current_revision"), "2");
    EXPECT_EQ(info(token).at("terms").at("accepted_revision"), "2026-10-01");
    EXPECT_EQ(newsletter(token).code(), "no_consent");
    EXPECT_EQ(consent(token, "2026-10-01").code(), "revision_not_current");
    EXPECT_EQ(consent(token, "2").status, 204);
    EXPECT_EQ(newsletter(token).status, 204);
}

TEST_F(Operations, NeedAFreshSignInToDeleteAnAccountThatHasAnAddress)
{
    const auto token = server.signedIn(anna);
    const auto anonymous = anonymousToken();
    server.advance(901);
    EXPECT_EQ(remove("/v2/account", token).status, 403);
    EXPECT_EQ(remove("/v2/account", token).code(), "reauthentication_required");
    EXPECT_EQ(remove("/v2/account", anonymous).status, 204);

    EXPECT_EQ(remove("/v2/account", server.signedIn(anna)).status, 204);
    EXPECT_EQ(account(token).code(), "unauthorized");
}

TEST(Algorithms, AllThreeSignTokensThatVerify)
{
    TemporaryFolder folder;
    for (const auto algorithm : {Algorithm::rs256, Algorithm::rs384, Algorithm::rs512})
    {
        auto settings = TestServer::settings(folder.path());
        settings.algorithm = algorithm;
        TestServer server(settings);
        const auto token = server.signedIn(anna);
        EXPECT_NO_THROW(verifiedPayload(token, server.environment()));
    }
}

TEST(RateLimit, HoldsForEachAddressUntilAnHourHasPassed)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path());
    settings.codesPerHour = 2;
    TestServer server(settings);
    server.requestCode(anna);
    server.advance(600);
    server.requestCode("ANNA@example.org");

    const Call again{"POST", "/v2/auth/one-time-code", R"({"email":"anna@example.org"})", "", {}};
    auto refused = server.call(again);
    EXPECT_EQ(refused.status, 429);
    EXPECT_EQ(refused.code(), "too_many_codes");
    EXPECT_NEAR(std::stoi(std::string(*refused.headers.value("retry-after"))), 3000, 60);
    server.requestCode("bert@example.org");

    server.advance(3001);
    EXPECT_EQ(server.call(again).status, 204);
    EXPECT_EQ(server.call(again).status, 429);
    // Notes that a moved clock left in the future do not lock an address out.
    server.control("POST /clock", R"({"offset":0})");
    EXPECT_EQ(server.call(again).status, 204);
}

}  // namespace
}  // namespace accountserver
