#include "tools/fetch/ProgressText.hpp"

#include <gmock/gmock.h>

#include <limits>
#include <vector>

namespace fetch
{
namespace
{

using namespace std::chrono_literals;

constexpr auto most = std::numeric_limits<std::int64_t>::max();
constexpr auto least = std::numeric_limits<std::int64_t>::min();

TEST(ProgressText, FitsIntoEveryWidthWhateverTheCountsAre)
{
    const std::int64_t counts[] = {least, -1, 0, 1, 999, 1 << 20, most - 1, most};
    for (const auto total : counts)
        for (const auto completed : counts)
            for (const auto elapsed : {0ms, 1ms, 700ms, 360'000'000ms})
                for (int columns = 0; columns < 120; ++columns)
                {
                    const auto line = progressLine({total, completed}, elapsed, columns, false);
                    EXPECT_LE(static_cast<int>(line.size()), std::max(columns - 1, 0)) << line;
                }
}

TEST(ProgressText, LeavesOutTheBarBeforeTheNumbers)
{
    const Counts counts{10 << 20, 4 << 20};
    EXPECT_EQ(progressLine(counts, 2s, 60, false),
              " 40 % [=======>            ] 4.0 MiB of 10.0 MiB, 2.0 MiB/s");
    EXPECT_EQ(progressLine(counts, 2s, 45, false), " 40 % 4.0 MiB of 10.0 MiB, 2.0 MiB/s");
    EXPECT_EQ(progressLine(counts, 2s, 20, false), " 40 %");
    EXPECT_EQ(progressLine({-1, 5000}, 100ms, 60, false), "4.9 KiB");
    EXPECT_EQ(progressLine({7, 7}, 61s, 60, false), "Waiting for the answer ... 1:01");
}

TEST(ProgressText, ToldPercentsAreThereAndNeverTooMany)
{
    const struct
    {
        Counts counts;
        std::optional<int> percent;
    } cases[] = {{{0, 0}, {}},      {{-1, 50}, {}},         {{3, -1}, 0},
                 {{1000, 999}, 99}, {{most, most - 1}, 99}, {{10, 20}, 100}};
    for (const auto& [counts, percent] : cases)
        EXPECT_EQ(percentOf(counts), percent) << counts.total << " " << counts.completed;
    EXPECT_EQ(sizeText(1023), "1023 B");
    EXPECT_EQ(sizeText(1024 * 1024 - 1), "1.0 MiB");
}

TEST(ProgressText, TellsEachMilestoneOnceAlsoWhenTheTotalChanges)
{
    Milestones milestones;
    std::vector<std::string> told;
    const Counts course[] = {{0, 0},    {-1, 0},   {100, 5},      {100, 10},     {100, 39},
                             {110, 40}, {100, 40}, {-1, 1 << 20}, {-1, 5 << 20}, {-1, 6 << 20}};
    for (const auto& counts : course)
        if (auto text = milestones.next(counts))
            told.push_back(*text);
    milestones.restart();
    told.push_back(milestones.next({100, 10}).value_or("nothing"));

    EXPECT_THAT(told, testing::ElementsAre("10 % of 100 B", "30 % of 100 B", "40 % of 100 B",
                                           "1.0 MiB", "5.0 MiB", "10 % of 100 B"));
}

}  // namespace
}  // namespace fetch
