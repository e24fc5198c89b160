#include "tools/conformance/Runner.hpp"

#include "tests/support/TemporaryFolder.hpp"
#include "tools/conformance/Failure.hpp"

#include <gmock/gmock.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace conformance
{
namespace
{

using boost::json::object;

/// Where three processes wait for each other.
pthread_barrier_t* newMeetingPlace()
{
    void* const shared = ::mmap(nullptr, sizeof(pthread_barrier_t), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* const barrier = static_cast<pthread_barrier_t*>(shared);
    pthread_barrierattr_t attributes;
    pthread_barrierattr_init(&attributes);
    pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_barrier_init(barrier, &attributes, 3);
    return barrier;
}

pthread_barrier_t* const meetingPlace = newMeetingPlace();

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
    if (what == "meet")
        pthread_barrier_wait(meetingPlace);
    if (what == "none")
        return Verdict::notApplicable();
    return Verdict::passedIf(what == "pass" || what == "meet", "pass", what);
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
                            {"absent.json", name, misbehave},
                            {"together.json", name, misbehave, label, 3}};

class ConformanceRunner : public testing::Test
{
protected:
    Report runOn(std::string_view cases, std::span<const KnownDisagreement> known = {},
                 std::string_view file = "fake.json")
    {
        folder.write(file, cases);
        return run(settings, judges, known);
    }

    TemporaryFolder folder;
    Settings settings{.folders = {folder.path()}, .filter = {}};
};

TEST_F(ConformanceRunner, FailsTheCaseThatEndsItsProcessAndJudgesTheRest)
{
    settings.timeLimit = std::chrono::milliseconds(200);
    const std::vector<std::pair<std::string, std::string>> expected{
        {"abort", "a crash: Aborted"},
        {"die", "a crash: Killed"},
        {"exit", "the process ended with status 0"},
        {"hang", "no answer in time"},
        {"hang (2)", "no answer in time"},
        {"throw", "the error boom"},
        {"throw a number", "an unknown error"},
        {"wrong", "wrong"}};

    // One after the other, and several at a time.
    for (const auto* file : {"fake.json", "together.json"})
    {
        const Report report = runOn(R"([{"text":"abort"},{"text":"pass"},{"text":"die"},
            {"text":"exit"},{"text":"hang"},{"text":"hang"},{"text":"throw"},
            {"text":"throw a number"},{"text":"wrong"},{"text":"none"},{"text":"pass"}])",
                                    {}, file);

        std::vector<std::pair<std::string, std::string>> failures;
        for (const auto& failure : report.failures)
            failures.emplace_back(failure.name, failure.found);
        EXPECT_EQ(failures, expected) << file;
        EXPECT_EQ(report.total().passed, 2u) << file;
        EXPECT_EQ(report.total().notApplicable, 1u) << file;
        std::filesystem::remove(folder.path() / file);
    }
}

TEST_F(ConformanceRunner, JudgesCasesThatWaitAtTheSameTime)
{
    const Report report =
        runOn(R"([{"text":"meet"},{"text":"meet"},{"text":"meet"}])", {}, "together.json");

    EXPECT_EQ(report.total().passed, 3u);
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
    EXPECT_THAT(report.missing, testing::ElementsAre("absent.json", "together.json"));
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
