#include "tests/tools/account-server/TestServer.hpp"

#include <gtest/gtest.h>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

namespace accountserver
{
namespace
{

struct Faults : testing::Test
{
    TemporaryFolder folder;
    TestServer server{folder.path()};
    std::string token = server.signedIn("anna@example.org");
    Call account{"GET", "/v2/account", "", token, {}};

    void set(const std::string& members) const
    {
        server.control("POST /faults", R"({"path":"/v2/account","count":1,)" + members + "}");
    }
};

TEST_F(Faults, SendAnyBodyInAnyFraming)
{
    for (const std::string framing : {"length", "chunked", "close"})
    {
        set(R"("kind":"status","status":418,"contentType":"text/plain","body":"ab","repeat":50000,)"
            R"("framing":")" +
            framing + "\"");
        auto reply = server.call(account);
        EXPECT_EQ(reply.status, 418) << framing;
        EXPECT_EQ(reply.headers.value("content-type"), "text/plain");
        EXPECT_EQ(reply.body.size(), 100'000u);
        EXPECT_EQ(reply.headers.value("content-length").has_value(), framing == "length");
        EXPECT_EQ(reply.headers.value("transfer-encoding").has_value(), framing == "chunked");
    }
}

TEST_F(Faults, AreCountedListedAndCleared)
{
    server.control("POST /faults", R"({"path":"*","kind":"status","status":503,"count":2})");
    server.control("POST /faults", R"({"path":"/v2/account","kind":"status","status":500})");
    EXPECT_EQ(server.call(account).status, 503);
    EXPECT_EQ(server.call({"GET", "/", "", "", {}}).status, 503);
    EXPECT_EQ(server.call(account).status, 500);
    EXPECT_EQ(server.call({"GET", "/", "", "", {}}).status, 200);
    EXPECT_EQ(boost::json::serialize(server.control("GET /faults").json()),
              R"({"faults":[{"path":"/v2/account","kind":"status"}]})");

    EXPECT_EQ(server.control("DELETE /faults?path=/other").json().at("cleared").to_number<int>(),
              0);
    EXPECT_EQ(server.call(account).status, 500);
    EXPECT_EQ(server.control("DELETE /faults").json().at("cleared").to_number<int>(), 1);
    EXPECT_EQ(server.call(account).status, 200);
}

TEST_F(Faults, ThatReplaceTheAnswerKeepTheOperationFromHappening)
{
    server.requestCode("anna@example.org");
    const auto code = server.newestCode("anna@example.org");
    server.control("POST /faults", R"({"path":"/v2/auth","kind":"status","status":500,"count":1})");
    EXPECT_EQ(server.signIn("anna@example.org", code).status, 500);
    EXPECT_EQ(server.signIn("anna@example.org", code).status, 200);
}

TEST(Control, RevokesOneSessionOrAllOfAUser)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    const auto token = server.signedIn("anna@example.org");
    const auto other = server.signedIn("anna@example.org");
    const Call account{"GET", "/v2/account", "", token, {}};
    const auto payload = verifiedPayload(token, server.environment());

    const auto bySession =
        R"({"session":")" + std::string(payload.at("session").as_string()) + "\"}";
    EXPECT_EQ(server.control("POST /sessions/revoke", bySession).json().at("sessions"), 1);
    EXPECT_EQ(server.call(account).code(), "unauthorized");
    EXPECT_EQ(server.call({"GET", "/v2/account", "", other, {}}).status, 200);

    const auto byUser = R"({"user":")" + std::string(payload.at("user").as_string()) + "\"}";
    EXPECT_EQ(server.control("POST /sessions/revoke", byUser).json().at("sessions"), 1);
    EXPECT_EQ(server.call({"GET", "/v2/account", "", other, {}}).code(), "unauthorized");
}

TEST(Control, MovesTheClockOfTheTokens)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    const auto token = server.signedIn("anna@example.org");
    const Call account{"GET", "/v2/account", "", token, {}};

    server.control("POST /clock", R"({"set":2000000000})");
    const auto later = verifiedPayload(server.call(account).body, server.environment());
    EXPECT_NEAR(later.at("iat").to_number<double>(), 2'000'000'000, 30);
    server.advance(-3600);
    const auto earlier = verifiedPayload(server.call(account).body, server.environment());
    EXPECT_NEAR(earlier.at("iat").to_number<double>(), 1'999'996'400, 30);
}

TEST(Control, RefusesBrowsersAndWhatItDoesNotKnow)
{
    TemporaryFolder folder;
    TestServer server(folder.path());
    const struct
    {
        Call call;
        int status;
    } cases[] = {
        {{"GET", "/clock", "", "", {"X-Control: 1"}}, 200},
        {{"GET", "/clock", "", "", {}}, 403},
        {{"GET", "/clock", "", "", {"X-Control: 1", "Origin: http://127.0.0.1"}}, 403},
        {{"GET", "/nothing", "", "", {"X-Control: 1"}}, 404},
        {{"POST", "/clock", R"({"advance":1,"set":1})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/faults", R"({"kind":"delay","dealy":5})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/faults", R"({"kind":"status","status":99})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/terms", R"({"revision":"2026-10-01"})", "", {"X-Control: 1"}}, 409},
        {{"POST", "/sessions/age", R"({"user":"u"})", "", {"X-Control: 1"}}, 400},
    };
    for (const auto& [call, status] : cases)
        EXPECT_EQ(server.bareControl(call).status, status) << call.path << " " << call.body;
}

}  // namespace
}  // namespace accountserver
