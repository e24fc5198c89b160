#include "tests/tools/tessera/Program.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

TEST(CommandLine, GoesFromACodeToAVerifiedAccountAndBack)
{
    const Stage stage;
    const std::string email = "anna@example.org";

    const auto requested = stage.tessera({"request-code", "--email", email});
    const auto code = stage.server.newestCode(email);
    const auto signedIn = stage.withToken({"sign-in", "--email", email, "--code", code});
    const auto token = stage.read(stage.tokenFile);
    struct stat status = {};
    ASSERT_EQ(::stat(stage.tokenFile.c_str(), &status), 0);
    const auto consented = stage.withToken({"consent"});
    const auto subscribed = stage.withToken({"newsletter"});
    const auto shown = stage.tessera({"info"}, token);
    const auto signedOut = stage.withToken({"sign-out"});

    std::string everything;
    for (const auto& ended : {requested, signedIn, consented, subscribed, shown, signedOut})
    {
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.output.find('\x1B'), std::string::npos);
        everything += ended.output;
    }
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_THAT(signedIn.output, HasSubstr("not accepted yet"));
    EXPECT_THAT(shown.output, HasSubstr("E-mail     anna@example.org\n"));
    EXPECT_THAT(shown.output, HasSubstr("2026-10-01 (accepted)"));
    EXPECT_THAT(everything, Not(HasSubstr(code)));
    EXPECT_THAT(everything, Not(HasSubstr(token.substr(0, token.find('.')))));
    EXPECT_FALSE(std::filesystem::exists(stage.tokenFile));
    EXPECT_EQ(stage.tessera({"info"}, token).exitCode, 6);
}

TEST(CommandLine, SpeaksJSONToScripts)
{
    const Stage stage;
    stage.signIn();

    const auto account = stage.withToken({"--json", "info"}).json().at("account");
    const auto consented = stage.withToken({"consent", "--json"}).json();
    const auto again = stage.withToken({"info", "--json"}).json().at("account");
    const auto deleted = stage.withToken({"delete", "--yes", "--json"}).json();

    EXPECT_EQ(account.at("email").as_string(), "anna@example.org");
    EXPECT_EQ(account.at("audience").as_string(), "tessera.mac");
    EXPECT_FALSE(account.at("anonymous").as_bool());
    EXPECT_TRUE(account.at("fresh").as_bool());
    EXPECT_TRUE(account.at("terms").at("needsConsent").as_bool());
    EXPECT_THAT(std::string(account.at("issuedAt").as_string()),
                testing::MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_EQ(consented.at("revision").as_string(), "2026-10-01");
    EXPECT_FALSE(again.at("terms").at("needsConsent").as_bool());
    EXPECT_EQ(deleted.at("command").as_string(), "delete");
    EXPECT_FALSE(std::filesystem::exists(stage.tokenFile));
}

TEST(CommandLine, GivesAnAnonymousAccountItsAddress)
{
    const Stage stage;
    const auto made = stage.server.control("POST /anonymous-accounts").json();
    stage.write(stage.tokenFile, std::string(made.at("token").as_string()));
    stage.server.requestCode("anna@example.org");
    const auto code = stage.server.newestCode("anna@example.org");
    const Arguments signIn{"sign-in",          "--attach", "--json", "--email",
                           "anna@example.org", "--code",   code};

    const auto before = stage.withToken({"info"});
    const auto attached = stage.withToken(signIn);
    const auto twice = stage.withToken(signIn);

    EXPECT_THAT(before.output, HasSubstr("anonymous"));
    const auto account = attached.json().at("account");
    EXPECT_EQ(account.at("user"), made.at("user"));
    EXPECT_EQ(account.at("email").as_string(), "anna@example.org");
    EXPECT_EQ(twice.exitCode, 2) << "an account with an address is not attached to";
}

TEST(CommandLine, KeepsTheSessionWhenTheAccountCannotBeFetched)
{
    const Stage stage;
    stage.server.requestCode("anna@example.org");
    const auto code = stage.server.newestCode("anna@example.org");
    stage.server.control("POST /faults", R"({"path":"/v2/account","kind":"otherAudience"})");

    const auto signedIn =
        stage.withToken({"sign-in", "--email", "anna@example.org", "--code", code});
    stage.server.control("DELETE /faults");

    EXPECT_EQ(signedIn.exitCode, 7);
    EXPECT_THAT(signedIn.errors, HasSubstr("You are signed in"));
    EXPECT_EQ(stage.withToken({"info"}).exitCode, 0);
}

TEST(CommandLine, SignsOutOfASessionThatHasEndedAlready)
{
    const Stage stage;
    const auto token = stage.signIn();
    stage.server.control("POST /sessions/revoke", R"({"token":")" + token + R"("})");

    const auto ended = stage.withToken({"sign-out", "--json"});

    EXPECT_TRUE(ended.json().at("alreadyEnded").as_bool());
    EXPECT_FALSE(std::filesystem::exists(stage.tokenFile));
}

}  // namespace
}  // namespace commandline
