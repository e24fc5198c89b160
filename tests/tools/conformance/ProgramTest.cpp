#include "tests/support/TemporaryFolder.hpp"

#include <boost/json/parse.hpp>

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace conformance
{
namespace
{

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file);
    return {std::istreambuf_iterator(in), {}};
}

class ConformanceProgram : public testing::Test
{
protected:
    ConformanceProgram()
    {
        folder.write("good/base64.json", R"([{"text":"AQ==","bytes":[1]}])");
        folder.write("bad/base64.json",
                     R"([{"text":"AQ==","bytes":[1]},{"text":"*","bytes":[1]}])");
        folder.write("broken/base64.json", "[");
        folder.write("empty/README.md", "no data");
    }

    /// Runs the program in the folder and returns its exit code.
    int run(const std::string& arguments)
    {
        const auto command = "cd " + folder.path().string() + " && " CONFORMANCE_PROGRAM " " +
                             arguments + " >output 2>errors";
        const int status = std::system(command.c_str());
        output = contentOf(folder.path() / "output");
        errors = contentOf(folder.path() / "errors");
        return WEXITSTATUS(status);
    }

    TemporaryFolder folder;
    std::string output;
    std::string errors;
};

TEST_F(ConformanceProgram, TellsByItsExitCodeAndOneSentenceHowItWent)
{
    const struct
    {
        const char* arguments;
        int exitCode;
    } rows[] = {{"--help", 0},
                {"--version", 0},
                {"good", 0},
                {"good bad", 1},
                {"bad --filter AQ", 0},
                {"", 2},
                {"good --time-limit 0", 2},
                {"good --no-such-option", 2},
                {"good absent", 3},
                {"good/base64.json", 3},
                {"good broken", 3},
                {"empty", 3},
                {"good --filter nothing", 3}};
    for (const auto& [arguments, exitCode] : rows)
    {
        EXPECT_EQ(run(arguments), exitCode) << arguments << "\n" << errors;
        const bool sentence =
            errors.starts_with("tessera-conformance: ") && errors.find('\n') == errors.size() - 1;
        EXPECT_EQ(sentence, exitCode > 1) << arguments << "\n" << errors;
        EXPECT_EQ(output.empty(), exitCode > 1) << arguments;
    }
}

TEST_F(ConformanceProgram, PrintsTheSameToPeopleAndToScripts)
{
    run("good bad");
    EXPECT_NE(output.find("FAILED base64.json: \"*\": expected 01, found refused\n"), output.npos)
        << output;
    EXPECT_TRUE(output.ends_with("\ntotal             2       1       0               0\n"))
        << output;

    run("good bad --json");
    const auto report = boost::json::parse(output);
    EXPECT_EQ(
        report.at("total"),
        boost::json::value({{"passed", 2}, {"failed", 1}, {"known", 0}, {"notApplicable", 0}}));
    EXPECT_EQ(report.at("failures").at(0).at("case"), "\"*\"");
}

}  // namespace
}  // namespace conformance
