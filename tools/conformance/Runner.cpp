#include "tools/conformance/Runner.hpp"

#include "tools/conformance/Failure.hpp"
#include "tools/conformance/Worker.hpp"

#include <algorithm>
#include <system_error>

namespace conformance
{
namespace
{

using Outcome = Verdict::Outcome;

Row& rowOf(std::vector<Row>& rows, const Case& each)
{
    const auto found = std::ranges::find(rows, each.label, &Row::label);
    if (found != rows.end())
        return *found;
    return rows.emplace_back(Row{std::string(each.judge->file), each.label, {}});
}

const KnownDisagreement* entryOf(std::span<const KnownDisagreement> known, const Case& each)
{
    const auto found =
        std::ranges::find_if(known, [&](const KnownDisagreement& entry)
                             { return entry.file == each.judge->file && entry.name == each.name; });
    return found == known.end() ? nullptr : &*found;
}

/// Counts a verdict, after the list of known disagreements had its say.
void enter(Report& report, Row& row, const Case& each, Verdict verdict,
           const KnownDisagreement* entry)
{
    if (verdict.outcome == Outcome::notApplicable)
    {
        ++row.counts.notApplicable;
    }
    else if (verdict.outcome == Outcome::failed && entry != nullptr)
    {
        ++row.counts.known;
        report.known.push_back({row.file, each.name, std::string(entry->reason)});
    }
    else if (verdict.outcome == Outcome::failed)
    {
        ++row.counts.failed;
        report.failures.push_back(
            {row.file, each.name, std::move(verdict.expected), std::move(verdict.found)});
    }
    else if (entry != nullptr)
    {
        ++row.counts.failed;
        report.failures.push_back({row.file, each.name, "a known disagreement",
                                   "that it passes; take its entry off the list"});
    }
    else
    {
        ++row.counts.passed;
    }
}

void judgeFile(Report& report, const DataFile& file, const Settings& settings,
               std::span<const KnownDisagreement> known)
{
    std::vector<Case> cases = file.cases;
    std::erase_if(cases,
                  [&](const Case& each)
                  {
                      const auto line = std::string(each.judge->file) + ": " + each.name;
                      return line.find(settings.filter) == line.npos;
                  });
    if (cases.empty())
        return;
    const Judge& judge = *cases.front().judge;
    std::vector<Verdict> verdicts(cases.size());
    std::size_t judged = 0;
    judgeApart(cases, judge.atOnce, settings.timeLimit,
               [&](std::size_t at, Verdict verdict)
               {
                   verdicts[at] = std::move(verdict);
                   if (settings.progress)
                       settings.progress(judge.file, ++judged, cases.size());
               });
    std::vector<Row> rows;
    for (std::size_t at = 0; at < cases.size(); ++at)
        enter(report, rowOf(rows, cases[at]), cases[at], std::move(verdicts[at]),
              entryOf(known, cases[at]));
    report.rows.insert(report.rows.end(), rows.begin(), rows.end());
}

}  // namespace

Counts Report::total() const
{
    Counts total;
    for (const Row& row : rows)
    {
        total.passed += row.counts.passed;
        total.failed += row.counts.failed;
        total.known += row.counts.known;
        total.notApplicable += row.counts.notApplicable;
    }
    return total;
}

Report run(const Settings& settings, std::span<const Judge> judges,
           std::span<const KnownDisagreement> known)
{
    auto collection = collect(settings.folders, judges);
    Report report;
    report.passedOver = std::move(collection.passedOver);
    report.missing = std::move(collection.missing);
    try
    {
        for (const DataFile& file : collection.files)
            judgeFile(report, file, settings, known);
    }
    catch (const std::system_error& error)
    {
        throw Failure(std::string("No process can be made to judge in (") + error.what() +
                      "). Free some memory or end other processes, and run it again.");
    }
    if (report.total().judged() == 0)
        throw Failure(settings.filter.empty()
                          ? "No case was judged. Name a folder that holds data files."
                          : "No case was judged. Give another --filter, or a folder that holds "
                            "data files.");
    return report;
}

}  // namespace conformance
