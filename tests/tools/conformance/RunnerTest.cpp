#include "tools/conformance/Runner.hpp"

#include "tests/support/TemporaryFolder.hpp"
#include "tools/conformance/Failure.hpp"
#include "tools/conformance/Report.hpp"

#include <gmock/gmock.h>

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace conformance
{
namespace
{

using boost::json::object;

/// Does to its process what the case says.
Verdict misbehave(const object& record, const object&)
{
    const auto what = textOf(record, "text");
    if (what == "abort")
        std::abort();
    // A signal that no sanitizer turns into an exit.
    if (what == "die")
        ::raise(SIGKILL);
    if (what == "exit")
        ::_exit(0);
    if (what == "throw")
        throw std::runtime_error("boom");
    if (what == "throw a number")
        throw 1;
    while (what == "hang")
        ::pause();
    if (what == "none")
        return Verdict::notApplicable();
    return Verdict::passedIf(what == "pass", "pass", what);
}

std::string label(const object& record)
{
    return record.contains("label") ? std::string(textOf(record, "label")) : std::string();
}

std::string name(const object& record)
{
    return std::string(textOf(record, "text"));
}

constexpr Judge judges[] = {{"fake.json", name, misbehave, label},
                            {"absent.json", name, misbehave}};

std::string lastLineOf(const std::string& text)
{
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
}

class ConformanceRunner : public testing::Test
{
protected:
    Report runOn(std::string_view cases, std::span<const KnownDisagreement> known = {})
    {
        folder.write("fake.json", cases);
        return run(settings, judges, known);
    }

    TemporaryFolder folder;
    Settings settings{.folders = {folder.path()}, .filter = {}};
};

TEST_F(ConformanceRunner, FailsTheCaseThatEndsItsProcessAndJudgesTheRest)
{
    settings.timeLimit = std::chrono::milliseconds(200);

    const Report report = runOn(R"([{"text":"abort"},{"text":"pass"},{"text":"die"},
        {"text":"exit"},{"text":"hang"},{"text":"hang"},{"text":"throw"},{"text":"throw a number"},
        {"text":"wrong"},{"text":"none"},{"text":"pass"}])");

    const std::vector<std::pair<std::string, std::string>> expected{
        {"abort", "a crash: Aborted"},
        {"die", "a crash: Killed"},
        {"exit", "the process ended with status 0"},
        {"hang", "no answer in time"},
        {"hang (2)", "no answer in time"},
        {"throw", "the error boom"},
        {"throw a number", "an unknown error"},
        {"wrong", "wrong"}};
    std::vector<std::pair<std::string, std::string>> failures;
    for (const auto& failure : report.failures)
        failures.emplace_back(failure.name, failure.found);
    EXPECT_EQ(failures, expected);
    EXPECT_EQ(report.total().passed, 2u);
    EXPECT_EQ(report.total().notApplicable, 1u);
    EXPECT_EQ(lastLineOf(asText(report)), "total           2       8       0               1\n");
}

TEST_F(ConformanceRunner, CountsKnownDisagreementsApartUntilTheyPass)
{
    const KnownDisagreement known[] = {{"fake.json", "wrong", "Our rule is another."},
                                       {"fake.json", "pass", "It used to fail."},
                                       {"fake.json", "none", "There is no such thing."},
                                       {"other.json", "bad", "Of another file."}};

    const Report report =
        runOn(R"([{"text":"wrong"},{"text":"pass"},{"text":"none"},{"text":"bad"}])", known);

    ASSERT_EQ(report.known.size(), 1u);
    EXPECT_EQ(report.known[0].name, "wrong");
    EXPECT_EQ(report.known[0].reason, "Our rule is another.");
    ASSERT_EQ(report.failures.size(), 2u);
    EXPECT_EQ(report.failures[0].name, "pass");
    EXPECT_EQ(report.failures[1].name, "bad");
    EXPECT_EQ(report.total().passed, 0u);
    EXPECT_EQ(report.total().notApplicable, 1u);
}

TEST_F(ConformanceRunner, CountsLabelledCasesInARowOfTheirOwn)
{
    const Report report = runOn(R"({"meta":{},"cases":[{"text":"pass"},
        {"text":"wrong","label":"open"},{"text":"pass"}]})");

    ASSERT_EQ(report.rows.size(), 2u);
    EXPECT_EQ(report.rows[0].counts.passed, 2u);
    EXPECT_EQ(report.rows[1].label, "open");
    EXPECT_EQ(report.rows[1].counts.failed, 1u);
}

TEST_F(ConformanceRunner, SaysWhatItPassesOver)
{
    folder.write("strange.json", "[]");
    folder.write("README.md", "no data");

    const Report report = runOn(R"([{"text":"pass"}])");

    EXPECT_THAT(report.passedOver, testing::ElementsAre(folder.path() / "strange.json"));
    EXPECT_THAT(report.missing, testing::ElementsAre("absent.json"));
}

TEST_F(ConformanceRunner, RefusesFilesOfAnotherForm)
{
    for (const auto* content :
         {"", "[", "7", "{}", R"({"meta":{}})", "[1]", R"([{"txet":"pass"}])"})
        EXPECT_THROW(runOn(content), Failure) << content;
}

TEST_F(ConformanceRunner, ShortensWhatItShows)
{
    const Report report = runOn(R"([{"text":")" + std::string(100'000, 'x') + R"("}])");

    ASSERT_EQ(report.failures.size(), 1u);
    EXPECT_LT(report.failures[0].found.size(), 500u);
}

}  // namespace
}  // namespace conformance
