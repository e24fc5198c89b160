#include "tests/tools/account-server/TestServer.hpp"
#include "tools/account-server/Authority.hpp"
#include "tools/account-server/Failure.hpp"
#include "tools/account-server/Files.hpp"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>
#include <sqlite3.h>
#include <boost/json/value.hpp>

#include <ctime>
#include <fstream>
#include <optional>

namespace accountserver
{
namespace
{

namespace fs = std::filesystem;

std::optional<ExitCode> startFailure(const Settings& settings)
{
    try
    {
        const Server server(settings);
        return std::nullopt;
    }
    catch (const Failure& failure)
    {
        EXPECT_TRUE(std::string(failure.what()).ends_with(".")) << failure.what();
        return failure.exitCode();
    }
}

TEST(State, OutlivesARestart)
{
    TemporaryFolder folder;
    const std::string anna = "anna@example.org";
    std::string token, authority, code;
    boost::json::value key, user;
    const auto account = [&](const TestServer& server)
    {
        const auto answer = server.call({"GET", "/v2/account", "", token, {}});
        return verifiedPayload(answer.body, server.environment());
    };
    {
        TestServer server(folder.path());
        token = server.signedIn(anna);
        server.control("POST /terms", R"({"revision":"2"})");
        user = account(server).at("user");
        server.requestCode(anna);
        code = server.newestCode(anna);
        authority = server.authority();
        key = server.environment().at("jwtPublicKey");
    }
    TestServer server(folder.path());
    EXPECT_EQ(server.authority(), authority);
    EXPECT_EQ(server.environment().at("jwtPublicKey"), key);
    EXPECT_EQ(account(server).at("user"), user);
    EXPECT_EQ(account(server).at("terms").at("current_revision"), "2");
    EXPECT_EQ(server.signIn(anna, code).status, 200);
}

TEST(State, IsForItsUserAlone)
{
    TemporaryFolder folder;
    TestServer server(folder.path() / "deep" / "state");
    server.requestCode("anna@example.org");

    for (const auto& entry : fs::recursive_directory_iterator(folder.path() / "deep" / "state"))
    {
        const auto open = entry.status().permissions() & fs::perms::group_all;
        if (entry.path().filename() != "environment.json")
        {
            EXPECT_EQ(open, fs::perms::none) << entry.path();
        }
    }
}

TEST(State, RefusesWhatItCannotUse)
{
    TemporaryFolder folder;
    const auto settings = TestServer::settings(folder.path());
    {
        const Server first(settings);
        EXPECT_EQ(startFailure(settings), ExitCode::state) << "another server runs";

        auto other = TestServer::settings(folder.path() / "other");
        other.port = first.port();
        EXPECT_EQ(startFailure(other), ExitCode::address);
        other.port = 0;
        other.controlPort = first.port();
        EXPECT_EQ(startFailure(other), ExitCode::address);
    }
    fs::permissions(folder.path(), fs::perms::others_read, fs::perm_options::add);
    EXPECT_EQ(startFailure(settings), ExitCode::state) << "others may look inside";
    fs::permissions(folder.path(), fs::perms::owner_all);

    sqlite3* database = nullptr;
    sqlite3_open((folder.path() / "accounts.sqlite").c_str(), &database);
    sqlite3_exec(database, "PRAGMA user_version = 2", nullptr, nullptr, nullptr);
    EXPECT_EQ(startFailure(settings), ExitCode::state) << "written by a newer server";
    sqlite3_exec(database, "PRAGMA user_version = 1", nullptr, nullptr, nullptr);
    sqlite3_close(database);
    EXPECT_EQ(startFailure(settings), std::nullopt);

    writeFile(folder.path() / "token.key", "no key");
    EXPECT_EQ(startFailure(settings), ExitCode::state);
    fs::remove(folder.path() / "token.key");
    fs::remove(folder.path() / "accounts.sqlite-wal");
    writeFile(folder.path() / "accounts.sqlite", std::string(4096, 'x'));
    EXPECT_EQ(startFailure(settings), ExitCode::state);
}

TEST(State, ReadyFileStandsWhileTheServerRuns)
{
    TemporaryFolder folder;
    auto settings = TestServer::settings(folder.path() / "state");
    settings.readyFile = folder.path() / "ready";
    settings.environmentFile = folder.path() / "environment";
    {
        const Server server(settings);
        EXPECT_EQ(readFile(settings.readyFile),
                  "https://localhost:" + std::to_string(server.port()) + "/\n");
        EXPECT_TRUE(fs::exists(settings.environmentFile));
    }
    EXPECT_FALSE(fs::exists(settings.readyFile));
}

TEST(Certificates, AreRenewedBeforeTheyEndAndCoverLoopbackAlone)
{
    constexpr std::time_t day = 24 * 60 * 60;
    TemporaryFolder folder;
    const auto now = std::time(nullptr);
    const Authority first(folder.path(), now);
    const Authority later(folder.path(), now + 300 * day);
    const Authority renewed(folder.path(), now + 370 * day);
    const Authority afterTenYears(folder.path(), now + 3640 * day);

    EXPECT_EQ(X509_cmp(first.leaf(), later.leaf()), 0);
    EXPECT_NE(X509_cmp(first.leaf(), renewed.leaf()), 0);
    EXPECT_EQ(first.certificateText(), renewed.certificateText());
    EXPECT_NE(first.certificateText(), afterTenYears.certificateText());
    EXPECT_EQ(X509_check_host(first.leaf(), "localhost", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_ip_asc(first.leaf(), "127.0.0.1", 0), 1);
    EXPECT_EQ(X509_check_ip_asc(first.leaf(), "::1", 0), 1);
    EXPECT_EQ(X509_check_host(first.leaf(), "example.org", 0, 0, nullptr), 0);
}

}  // namespace
}  // namespace accountserver
