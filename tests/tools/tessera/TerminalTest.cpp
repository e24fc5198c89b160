#include "tests/tools/tessera/Program.hpp"

#include <gmock/gmock.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

TEST(CommandLine, AsksForTheCodeAtATerminalAndDoesNotShowIt)
{
    const Stage stage;
    const auto code = stage.code();
    const Arguments signIn{"sign-in", "--email", "anna@example.org"};

    const auto refused = stage.tessera(signIn, code + "\n");
    AtTerminal terminal(stage.with(signIn), stage.surroundings);
    ASSERT_TRUE(terminal.shows("Code from the mail: ")) << terminal.screen();
    EXPECT_FALSE(terminal.echoes());
    terminal.type(code + "\n");

    EXPECT_EQ(terminal.end(), 0) << terminal.screen();
    EXPECT_THAT(terminal.screen(), Not(HasSubstr(code)));
    EXPECT_THAT(terminal.screen(), HasSubstr("\x1B[1mAccount\x1B[0m")) << "colours at a terminal";
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_THAT(refused.errors, HasSubstr("--code"));
}

TEST(CommandLine, LeavesTheTerminalAsItWasWhenAQuestionIsInterrupted)
{
    const Stage stage;
    AtTerminal terminal(stage.with({"sign-in", "--email", "anna@example.org"}), stage.surroundings);
    ASSERT_TRUE(terminal.shows("Code from the mail: ")) << terminal.screen();
    terminal.type("12\x03");
    ASSERT_TRUE(terminal.shows("cancelled")) << terminal.screen();

    EXPECT_TRUE(terminal.echoes());
    EXPECT_EQ(terminal.end(), 130) << terminal.screen();
    EXPECT_EQ(stage.requests(), 0);
}

TEST(CommandLine, TellsThatACallTakesLongAndEndsItOnInterrupt)
{
    const Stage stage;
    stage.signIn();
    stage.server.control("POST /faults", R"({"kind":"delay","delay":60000})");
    AtTerminal terminal(stage.with({"info"}), stage.surroundings);
    ASSERT_TRUE(terminal.shows("Waiting for localhost ...")) << terminal.screen();
    terminal.type("\x03");

    EXPECT_EQ(terminal.end(), 130) << terminal.screen();
    EXPECT_THAT(terminal.screen(), HasSubstr("\r\x1B[K")) << "the line is gone again";
    EXPECT_THAT(terminal.screen(), HasSubstr("cancelled"));
}

TEST(CommandLine, TellsAnEndByAnotherProgramFromAnInterrupt)
{
    const Stage stage;
    stage.signIn();
    stage.server.control("POST /faults", R"({"path":"/v2/account","kind":"delay","delay":60000})");
    AtTerminal terminal(stage.with({"info"}), stage.surroundings);
    ASSERT_TRUE(terminal.shows("Waiting for localhost ...")) << terminal.screen();
    stage.tessera({"sign-out"});

    EXPECT_EQ(terminal.end(), 6) << terminal.screen();
    EXPECT_THAT(terminal.screen(), HasSubstr("Another program signed in or out"));
}

TEST(CommandLine, DeletesOnlyWhatWasConfirmed)
{
    const Stage stage;
    const auto token = stage.signIn();
    const struct
    {
        const char* answer;
        int exitCode;
        bool tokenStays;
    } cases[] = {{"no\n", 9, true}, {"\x04", 9, true}, {"delete\n", 0, false}};
    for (const auto& [answer, exitCode, tokenStays] : cases)
    {
        AtTerminal terminal(stage.with({"delete"}), stage.surroundings);
        ASSERT_TRUE(terminal.shows("to go on: ")) << terminal.screen();
        terminal.type(answer);

        EXPECT_EQ(terminal.end(), exitCode) << terminal.screen();
        EXPECT_EQ(stage.token() == token, tokenStays);
    }
}

TEST(CommandLine, AsksForThePassphraseOfALockedKeychain)
{
    const Stage stage;
    stage.signIn();
    ASSERT_EQ(run({"keychain", "passphrase", "set"}, "secret\n", stage.surroundings).exitCode, 0);
    const Arguments status = stage.with({"status"});
    auto withDescriptor = status;
    withDescriptor.insert(withDescriptor.end(), {"--passphrase-fd", "3"});

    const auto locked = run(status, "", stage.surroundings);
    const auto given = run(withDescriptor, "", {stage.surroundings.variables, "secret\n"});
    AtTerminal terminal(status, stage.surroundings);
    ASSERT_TRUE(terminal.shows("Passphrase of the keychain: ")) << terminal.screen();
    EXPECT_FALSE(terminal.echoes());
    terminal.type("secret\n");

    EXPECT_EQ(terminal.end(), 0) << terminal.screen();
    EXPECT_THAT(terminal.screen(), HasSubstr("signed in"));
    EXPECT_EQ(given.exitCode, 0) << given.errors;
    EXPECT_THAT(given.output, HasSubstr("signed in"));
    EXPECT_EQ(locked.exitCode, 10);
    EXPECT_THAT(locked.errors, HasSubstr("--passphrase-fd"));

    AtTerminal interrupted(status, stage.surroundings);
    ASSERT_TRUE(interrupted.shows("Passphrase of the keychain: ")) << interrupted.screen();
    interrupted.type("\x03");
    EXPECT_EQ(interrupted.end(), 130) << interrupted.screen();
}

}  // namespace
}  // namespace commandline
