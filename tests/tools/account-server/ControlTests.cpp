#include "tests/tools/account-server/TestServer.hpp"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include <chrono>

namespace accountserver
{
namespace
{

struct Faults : testing::Test
{
    TemporaryFolder folder;
    TestServer server{folder.path};
    std::string token = server.signedIn("anna@example.org");
    Call account{"GET", "/v2/account", "", token, {}};

    void set(const std::string& members) const
    {
        server.control("POST /faults", R"({"path":"/v2/account","count":1,)" + members + "}");
    }
};

TEST_F(Faults, SpoilTheAnswerAsAskedAndNoOther)
{
    const struct
    {
        const char* members;
        int error;
        int status;
    } cases[] = {
        {R"("kind":"half")", CURLE_PARTIAL_FILE, 200},
        {R"("kind":"half","in":"headers")", CURLE_OK, 200},
        {R"("kind":"reset")", CURLE_RECV_ERROR, 0},
        {R"("kind":"raw","body":"SSH-2.0-x\r\n")", CURLE_UNSUPPORTED_PROTOCOL, 0},
        {R"("kind":"status","status":205)", CURLE_OK, 205},
        {R"("kind":"status","status":301)", CURLE_OK, 301},
        {R"("kind":"status","status":204,"body":"not sent")", CURLE_OK, 204},
    };
    for (const auto& [members, error, status] : cases)
    {
        set(members);
        const auto spoilt = server.call(account);
        EXPECT_EQ(spoilt.error, error) << members;
        EXPECT_EQ(spoilt.status, status) << members;
        EXPECT_THROW(verifiedPayload(spoilt.body, server.environment()), std::exception);
        EXPECT_EQ(server.callAgain(account).status, 200) << members;
    }
}

TEST_F(Faults, SendAnyBodyInAnyFraming)
{
    for (const std::string framing : {"length", "chunked", "close"})
    {
        set(R"("kind":"status","status":418,"contentType":"text/plain","body":"ab","repeat":50000,)"
            R"("framing":")" +
            framing + "\"");
        auto reply = server.call(account);
        EXPECT_EQ(reply.status, 418) << framing;
        EXPECT_EQ(reply.type, "text/plain");
        EXPECT_EQ(reply.body.size(), 100'000u);
        EXPECT_EQ(reply.headers.contains("content-length"), framing == "length");
        EXPECT_EQ(reply.headers.contains("transfer-encoding"), framing == "chunked");
    }
}

TEST_F(Faults, SpoilTokens)
{
    set(R"("kind":"wrongSignature")");
    EXPECT_THROW(verifiedPayload(server.call(account).body, server.environment()),
                 std::runtime_error);
    set(R"("kind":"otherAudience")");
    const auto other = verifiedPayload(server.call(account).body, server.environment());
    EXPECT_EQ(other.at("aud"), "other.editor.mac");
    const auto right = verifiedPayload(server.call(account).body, server.environment());
    EXPECT_EQ(right.at("aud"), "editor.mac");
}

TEST_F(Faults, TakeTheTimeThatWasAsked)
{
    using Clock = std::chrono::steady_clock;
    for (const auto* members :
         {R"("kind":"delay","delay":200)", R"("kind":"drip","pieceSize":100,"interval":20)"})
    {
        set(members);
        const auto start = Clock::now();
        const auto reply = server.call(account);
        EXPECT_EQ(reply.status, 200);
        EXPECT_NO_THROW(verifiedPayload(reply.body, server.environment()));
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(140)) << members;
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

TEST_F(Faults, CountRequestsAndConnections)
{
    server.control("DELETE /requests");
    for (int i = 0; i < 3; ++i)
        server.callAgain(account);
    server.call({"GET", "/nowhere/at/all", "", "", {}});

    const auto counted = server.control("GET /requests").json();
    EXPECT_EQ(counted.at("paths").at("/v2/account").to_number<int>(), 3);
    EXPECT_EQ(counted.at("paths").at("other").to_number<int>(), 1);
    EXPECT_EQ(counted.at("total").to_number<int>(), 4);
    EXPECT_EQ(counted.at("connections").to_number<int>(), 2) << "three came on one connection";
}

TEST(Control, RevokesAndAgesSessions)
{
    TemporaryFolder folder;
    TestServer server(folder.path);
    const auto token = server.signedIn("anna@example.org");
    const auto other = server.signedIn("anna@example.org");
    const Call account{"GET", "/v2/account", "", token, {}};
    const auto payload = verifiedPayload(token, server.environment());

    const auto byToken = R"({"token":")" + token + R"(","seconds":1000})";
    EXPECT_EQ(server.control("POST /sessions/age", byToken).json().at("sessions"), 1);
    EXPECT_EQ(server.call({"DELETE", "/v2/account", "", token, {}}).code(),
              "reauthentication_required");

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
    TestServer server(folder.path);
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
    TestServer server(folder.path);
    const auto port = std::to_string(*server.server->controlPort());
    const struct
    {
        Call call;
        int status;
    } cases[] = {
        {{"GET", "/clock", "", "", {"X-Control: 1"}}, 200},
        {{"GET", "/clock", "", "", {"X-Control: 1", "Host: localhost:" + port}}, 200},
        {{"GET", "/clock", "", "", {}}, 403},
        {{"GET", "/clock", "", "", {"X-Control: 1", "Host: evil.example:" + port}}, 403},
        {{"GET", "/clock", "", "", {"X-Control: 1", "Origin: http://127.0.0.1"}}, 403},
        {{"GET", "/nothing", "", "", {"X-Control: 1"}}, 404},
        {{"POST", "/clock", "", "", {"X-Control: 1"}}, 400},
        {{"POST", "/clock", R"({"advance":1,"set":1})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/clock", R"({"advance":"1"})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/faults", R"({"kind":"other"})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/faults", R"({"kind":"delay","dealy":5})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/faults", R"({"kind":"status","status":99})", "", {"X-Control: 1"}}, 400},
        {{"POST", "/terms", R"({"revision":"2026-10-01"})", "", {"X-Control: 1"}}, 409},
        {{"POST", "/terms", "{", "", {"X-Control: 1"}}, 400},
        {{"POST", "/sessions/age", R"({"user":"u"})", "", {"X-Control: 1"}}, 400},
    };
    for (const auto& [call, status] : cases)
        EXPECT_EQ(server.bareControl(call).status, status) << call.path << " " << call.body;
}

}  // namespace
}  // namespace accountserver
