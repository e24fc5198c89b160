#include "tests/tools/tessera/Program.hpp"

#include "tools/account-server/Files.hpp"

#include <gmock/gmock.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

struct ErrorCase
{
    std::string what;
    Arguments arguments;
    int exitCode;
    std::string className;
    std::string name;
    std::string fault = "";
    /// A part of what a person is told.
    std::string said = "";
};

/// The same failure, told to a person and to a script.
void expectTold(const Stage& stage, const ErrorCase& error)
{
    const auto set = [&]
    {
        stage.server.control("DELETE /faults");
        if (!error.fault.empty())
            stage.server.control("POST /faults", error.fault);
    };
    auto arguments = error.arguments;
    set();
    const auto forPeople = run(arguments, "", stage.surroundings);
    arguments.emplace_back("--json");
    set();
    const auto forScripts = run(arguments, "", stage.surroundings);

    SCOPED_TRACE(error.what + "\n" + forPeople.errors + forScripts.output);
    EXPECT_EQ(forPeople.exitCode, error.exitCode);
    EXPECT_EQ(forPeople.output, "");
    EXPECT_TRUE(forPeople.errors.starts_with("tessera: "));
    EXPECT_TRUE(forPeople.errors.ends_with(".\n"));
    EXPECT_EQ(forPeople.errors.find('\n'), forPeople.errors.size() - 1);
    EXPECT_THAT(forPeople.errors, HasSubstr(error.said));
    EXPECT_THAT(forPeople.errors, Not(HasSubstr("\x1B")));
    EXPECT_THAT(forPeople.errors, Not(HasSubstr("secret")));

    EXPECT_EQ(forScripts.exitCode, error.exitCode);
    EXPECT_EQ(forScripts.errors, "");
    const auto told = forScripts.json().at("error");
    EXPECT_EQ(told.at("class").as_string(), error.className);
    EXPECT_EQ(told.at("name").as_string(), error.name);
    EXPECT_EQ(told.at("exitCode").as_int64(), error.exitCode);
    EXPECT_FALSE(told.at("message").as_string().empty());
    EXPECT_FALSE(told.at("next").as_string().empty());
}

TEST(CommandLine, TellsTheClassOfEachErrorByItsExitCode)
{
    const Stage stage;
    stage.signIn();
    const auto info = stage.with({"info"});
    const auto signIn = stage.with({"sign-in", "--email", "secret@example.org"});
    const auto plus = [](Arguments arguments, const Arguments& more)
    {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    };
    const auto on = [](const std::string& kind)
    { return R"({"path":"/v2/account","kind":)" + kind + "}"; };

    const ErrorCase cases[] = {
        {"no command", {}, 2, "usage", "usage"},
        {"unknown command", {"statsu", "--history"}, 2, "usage", "usage", "", "\"statsu\""},
        {"address for a command", {"secret@example.org"}, 2, "usage", "usage", "", "--help"},
        {"passphrase for a command", {"keychain", "passphrase", "secret"}, 2, "usage", "usage"},
        {"unknown option", plus(info, {"--tokn=secret"}), 2, "usage", "usage"},
        {"no server", {"info"}, 2, "usage", "usage"},
        {"two servers", plus(info, {"--preset", "directPreview"}), 2, "usage", "usage"},
        {"identifier for another header", plus(info, {"--client-identifier", "a\r\nb"}), 2, "usage",
         "usage"},
        {"code without a terminal", signIn, 2, "usage", "noCode"},
        {"deletion without a terminal", stage.with({"delete"}), 2, "usage", "notConfirmed"},
        {"no environment file",
         {"info", "--environment", "/none"},
         3,
         "environment",
         "EnvironmentFileError"},
        {"time limit", plus(info, {"--time-limit", "0.2"}), 4, "network", "URLError.timeout",
         on(R"("delay","delay":60000)")},
        {"no HTTP", info, 4, "network", "URLError.protocol",
         on(R"("raw","body":"SSH-2.0\r\n\r\n")")},
        {"reset", info, 4, "network", "URLError.connectionLost", on(R"("reset")")},
        {"half an answer", info, 4, "network", "URLError.truncated", on(R"("half","in":"body")")},
        {"wrong code", plus(signIn, {"--code", "secret"}), 5, "refused",
         "AccountRemoteError.other"},
        {"no address", stage.with({"request-code", "--email", "secret"}), 5, "refused",
         "AccountRemoteError.other", "", "Check --email."},
        {"other terms", plus(stage.with({"consent"}), {"--revision", "secret"}), 5, "refused",
         "AccountRemoteError.other", "", "tessera info"},
        {"terminal commands in the server's words", info, 5, "refused", "AccountRemoteError.other",
         on(R"("status","body":"{\"code\":\"x\",\"message\":\"a\\u001b[2J\\nb\"}")")},
        {"no error record", info, 5, "refused",
         "AsyncURLSessionDataTaskDecodingError.errorTypeMismatch",
         on(R"("status","status":502,"body":"<html>\n\u001b[2J")")},
        {"unauthorized", info, 6, "signInNeeded", "AccountRemoteError.unauthorized",
         on(R"("status","status":401,"body":"{\"code\":\"unauthorized\",\"message\":\"No.\"}")")},
        {"wrong signature", info, 7, "verification", "JWTError.verificationFailed",
         on(R"("wrongSignature")")},
        {"other audience", info, 7, "verification", "AccountError.audienceMismatch",
         on(R"("otherAudience")")},
    };
    for (const auto& error : cases)
        expectTold(stage, error);
}

TEST(CommandLine, AsksForANewSignInBeforeADeletion)
{
    const Stage stage;
    const auto token = stage.signIn();
    stage.server.control("POST /sessions/age", R"({"token":")" + token + R"(","seconds":3600})");

    expectTold(stage, {"old sign-in", stage.with({"delete", "--yes"}), 6, "signInNeeded",
                       "AccountRemoteError.reauthenticationRequired"});

    EXPECT_EQ(stage.token(), token);
}

TEST(CommandLine, ActsForNobodyWithoutASession)
{
    const Stage stage;

    for (const auto* command : {"info", "refresh", "consent", "newsletter", "delete"})
        expectTold(stage, {command, stage.with({command}), 6, "signInNeeded",
                           "AccountError.accountRequired"});

    EXPECT_EQ(stage.tessera({"status", "--json"}).json().at("state").as_string(), "signedOut");
    EXPECT_EQ(stage.tessera({"sign-out", "--json"}).json().at("server").as_string(), "notNeeded");
    EXPECT_EQ(stage.requests(), 0);
}

TEST(CommandLine, SendsATokenToNoServerButItsOwn)
{
    const Stage stage, other;
    stage.store(other.signIn());

    for (const auto* command : {"info", "refresh", "consent", "newsletter"})
        expectTold(stage, {command, stage.with({command}), 7, "verification", "storedSession"});
    EXPECT_TRUE(stage.tessera({"status", "--json"}).json().as_object().contains("problem"));
    const auto signedOut = stage.tessera({"sign-out", "--json"});

    EXPECT_EQ(signedOut.json().at("server").as_string(), "notAsked");
    EXPECT_EQ(stage.token(), "");
    EXPECT_EQ(stage.requests(), 0);
}

TEST(CommandLine, TellsThatTheKeychainCannotBeUsedBeforeACodeIsUsedUp)
{
    const Stage stage;
    const auto code = stage.code();
    const auto requests = stage.requests();
    accountserver::writeFile(stage.home / "data", "a file where a folder must be", 0600);
    const Arguments commands[] = {
        {"sign-in", "--email", "anna@example.org", "--code", code},
        {"status"},
        {"info"},
        {"sign-out"},
    };
    for (const auto& command : commands)
    {
        const auto ended = stage.tessera(command);
        EXPECT_EQ(ended.exitCode, 10) << command.front();
        EXPECT_THAT(ended.errors, HasSubstr("tessera keychain doctor"));
    }
    EXPECT_EQ(stage.tessera({"watch"}).exitCode, 10);
    EXPECT_EQ(stage.requests(), requests);
}

TEST(CommandLine, HelpNamesEveryExitCode)
{
    const auto help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const auto* code : {"   0", "   1", "   2", "   3", "   4", "   5", "   6", "   7", "   9",
                             "  10", "  11", "  12", " 130"})
        EXPECT_THAT(help.output, HasSubstr(std::string("\n ") + code + "  "));
    EXPECT_TRUE(run({"--version"}).output.starts_with("tessera 0."));
}

}  // namespace
}  // namespace commandline
