#include "tests/tools/tessera/Program.hpp"

#include <gmock/gmock.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

constexpr auto email = "anna@example.org";

TEST(CommandLine, GoesFromACodeToAVerifiedAccountAndBack)
{
    const Stage stage;

    const auto requested = stage.tessera({"request-code", "--email", email});
    const auto code = stage.server.newestCode(email);
    const auto copied = " " + code.substr(0, 3) + " " + code.substr(3) + "\n";
    const auto signedIn = stage.tessera({"sign-in", "--email", email, "--code", copied});
    const auto token = stage.token();
    const auto consented = stage.tessera({"consent"});
    const auto subscribed = stage.tessera({"newsletter"});
    const auto shown = stage.tessera({"info"});
    const auto refreshed = stage.tessera({"refresh"});
    const auto requests = stage.requests();
    const auto looked = stage.tessera({"status"});
    const bool askedServer = stage.requests() != requests;
    const auto signedOut = stage.tessera({"sign-out"});

    std::string everything;
    for (const auto& ended :
         {requested, signedIn, consented, subscribed, shown, refreshed, looked, signedOut})
    {
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.output.find('\x1B'), std::string::npos);
        everything += ended.output;
    }
    EXPECT_THAT(signedIn.output, HasSubstr("not accepted yet"));
    EXPECT_THAT(shown.output, HasSubstr("E-mail     anna@example.org\n"));
    EXPECT_THAT(shown.output, HasSubstr("2026-10-01 (accepted)"));
    EXPECT_THAT(looked.output, HasSubstr("Source     from the keychain\n"));
    EXPECT_FALSE(askedServer);
    EXPECT_EQ(signedOut.output, "You are signed out.\n");
    EXPECT_THAT(everything, Not(HasSubstr(code)));
    EXPECT_THAT(everything, Not(HasSubstr(token.substr(0, token.find('.')))));
    EXPECT_EQ(stage.token(), "");
    stage.store(token);
    EXPECT_EQ(stage.tessera({"info"}).exitCode, 6) << "ended on the server, too";
}

TEST(CommandLine, SpeaksJSONToScripts)
{
    const Stage stage;
    stage.signIn();

    const auto account = stage.tessera({"--json", "info"}).json().at("account");
    const auto consented = stage.tessera({"consent", "--json"}).json();
    const auto status = stage.tessera({"status", "--json", "--history"}).json();
    const auto deleted = stage.tessera({"delete", "--yes", "--json"}).json();

    EXPECT_EQ(account.at("email").as_string(), email);
    EXPECT_EQ(account.at("audience").as_string(), "tessera.mac");
    EXPECT_FALSE(account.at("anonymous").as_bool());
    EXPECT_TRUE(account.at("fresh").as_bool());
    EXPECT_TRUE(account.at("terms").at("needsConsent").as_bool());
    EXPECT_THAT(std::string(account.at("issuedAt").as_string()),
                testing::MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_EQ(consented.at("revision").as_string(), "2026-10-01");
    EXPECT_EQ(status.at("state").as_string(), "signedIn");
    EXPECT_EQ(status.at("source").as_string(), "local");
    EXPECT_FALSE(status.at("account").at("terms").at("needsConsent").as_bool())
        << "what is stored knows of the consent";
    EXPECT_TRUE(status.at("history").at(0).as_object().contains("cause"));
    EXPECT_EQ(deleted.at("command").as_string(), "delete");
    EXPECT_EQ(stage.token(), "");
}

TEST(CommandLine, KeepsTheSessionWhenTheAccountCannotBeFetched)
{
    const Stage stage;
    const auto code = stage.code();
    stage.server.control("POST /faults", R"({"path":"/v2/account","kind":"otherAudience"})");

    const auto signedIn = stage.tessera({"sign-in", "--email", email, "--code", code});
    const auto status = stage.tessera({"status"});
    stage.server.control("DELETE /faults");

    EXPECT_EQ(signedIn.exitCode, 7);
    EXPECT_THAT(signedIn.errors, HasSubstr("You are signed in"));
    EXPECT_THAT(status.output, HasSubstr("pending"));
    EXPECT_EQ(stage.tessera({"info"}).exitCode, 0);
}

TEST(CommandLine, SignsOutHereWhateverTheServerDoes)
{
    const struct
    {
        const char* fault;
        const char* server;
        const char* told;
    } cases[] = {
        {R"({"kind":"status","status":401,"body":"{\"code\":\"unauthorized\",\"message\":\"No.\"}"})",
         "confirmed", "You are signed out.\n"},
        {R"({"kind":"status","status":503,"body":"{}"})", "unconfirmed", "did not confirm"},
        {R"({"kind":"reset"})", "unconfirmed", "did not confirm"},
        {R"({"kind":"delay","delay":60000})", "noAnswer", "did not answer"},
    };
    const Stage stage;
    for (const auto& [fault, server, told] : cases)
    {
        const auto token = stage.signIn();
        stage.server.control("POST /faults", fault);
        const auto forPeople = stage.tessera({"sign-out"});
        EXPECT_EQ(stage.token(), "");
        stage.store(token);
        const auto forScripts = stage.tessera({"sign-out", "--json"});
        stage.server.control("DELETE /faults");

        SCOPED_TRACE(fault);
        EXPECT_EQ(forPeople.exitCode, 0) << forPeople.errors;
        EXPECT_THAT(forPeople.output, HasSubstr(told));
        EXPECT_EQ(forScripts.json().at("server").as_string(), server);
        EXPECT_EQ(stage.token(), "");
    }
}

TEST(CommandLine, WatchesWhatOtherProgramsOfTheUserDo)
{
    const Stage stage;
    AtTerminal people(stage.with({"watch"}), stage.surroundings);
    AtTerminal scripts(stage.with({"watch", "--json", "--client-identifier", "editor"}),
                       stage.surroundings);
    ASSERT_TRUE(people.shows("signed out")) << people.screen();
    ASSERT_TRUE(scripts.shows(R"("state":"signedOut")")) << scripts.screen();

    stage.signIn();
    ASSERT_TRUE(people.shows("anna@example.org (from the server)")) << people.screen();
    ASSERT_TRUE(scripts.shows(R"("source":"remote")")) << scripts.screen();
    stage.tessera({"sign-out"});
    ASSERT_TRUE(people.shows("signed out", 2)) << people.screen();
    ASSERT_TRUE(scripts.shows(R"("state":"signedOut")", 2)) << scripts.screen();

    people.type("\x03");
    scripts.type("\x03");
    EXPECT_EQ(people.end(), 0) << people.screen();
    EXPECT_EQ(scripts.end(), 0) << scripts.screen();
    EXPECT_THAT(people.screen(), HasSubstr("\x1B[32msigned in"));
    EXPECT_THAT(scripts.screen(), Not(HasSubstr("\x1B")));
    EXPECT_THAT(scripts.screen(), HasSubstr(R"("audience":"editor.mac")"));
    const auto history = stage.tessera({"status", "--history", "--client-identifier", "editor"});
    EXPECT_THAT(history.output, HasSubstr("pending     Another program of the user signed in."));
    EXPECT_THAT(history.output, HasSubstr("signed out  Another program of the user signed out."));
}

}  // namespace
}  // namespace commandline
