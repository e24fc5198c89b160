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
    stage.server.requestCode("anna@example.org");
    const auto code = stage.server.newestCode("anna@example.org");
    const Arguments signIn =
        stage.with({"sign-in", "--email", "anna@example.org", "--token-file", stage.tokenFile});

    const auto refused = run(signIn, code + "\n");
    AtTerminal terminal(signIn);
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
    AtTerminal terminal(
        stage.with({"sign-in", "--email", "anna@example.org", "--token-file", stage.tokenFile}));
    ASSERT_TRUE(terminal.shows("Code from the mail: ")) << terminal.screen();
    terminal.type("12\x03");
    ASSERT_TRUE(terminal.shows("cancelled")) << terminal.screen();

    EXPECT_TRUE(terminal.echoes());
    EXPECT_EQ(terminal.end(), 130) << terminal.screen();
    EXPECT_FALSE(std::filesystem::exists(stage.tokenFile));
    EXPECT_EQ(stage.requests(), 0);
}

TEST(CommandLine, TellsThatACallTakesLongAndEndsItOnInterrupt)
{
    const Stage stage;
    stage.signIn();
    stage.server.control("POST /faults", R"({"kind":"delay","delay":60000})");
    AtTerminal terminal(stage.with({"info", "--token-file", stage.tokenFile}));
    ASSERT_TRUE(terminal.shows("Waiting for localhost ...")) << terminal.screen();
    terminal.type("\x03");

    EXPECT_EQ(terminal.end(), 130) << terminal.screen();
    EXPECT_THAT(terminal.screen(), HasSubstr("\r\x1B[K")) << "the line is gone again";
    EXPECT_THAT(terminal.screen(), HasSubstr("cancelled"));
}

TEST(CommandLine, DeletesOnlyWhatWasConfirmed)
{
    const Stage stage;
    stage.signIn();
    const struct
    {
        const char* answer;
        int exitCode;
        bool tokenStays;
    } cases[] = {{"no\n", 9, true}, {"\x04", 9, true}, {"delete\n", 0, false}};
    for (const auto& [answer, exitCode, tokenStays] : cases)
    {
        AtTerminal terminal(stage.with({"delete", "--token-file", stage.tokenFile}));
        ASSERT_TRUE(terminal.shows("to go on: ")) << terminal.screen();
        terminal.type(answer);

        EXPECT_EQ(terminal.end(), exitCode) << terminal.screen();
        EXPECT_EQ(std::filesystem::exists(stage.tokenFile), tokenStays);
    }
}

}  // namespace
}  // namespace commandline
