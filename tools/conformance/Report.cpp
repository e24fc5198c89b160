#include "tools/conformance/Report.hpp"

#include <boost/algorithm/string/join.hpp>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <algorithm>
#include <array>

namespace conformance
{
namespace
{

namespace json = boost::json;

std::string title(const Row& row)
{
    return row.label.empty() ? row.file : row.file + ", " + row.label;
}

std::string leftAligned(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string rightAligned(const std::string& text, std::size_t width)
{
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string line(const std::string& first, std::size_t width,
                 const std::array<std::string, 4>& columns)
{
    return leftAligned(first, width) + rightAligned(columns[0], 8) + rightAligned(columns[1], 8) +
           rightAligned(columns[2], 8) + rightAligned(columns[3], 16) + "\n";
}

std::array<std::string, 4> columns(const Counts& counts)
{
    return {std::to_string(counts.passed), std::to_string(counts.failed),
            std::to_string(counts.known), std::to_string(counts.notApplicable)};
}

std::string table(const Report& report)
{
    std::size_t width = 0;
    for (const Row& row : report.rows)
        width = std::max(width, title(row).size());
    std::string text = line("file", width, {"passed", "failed", "known", "not applicable"});
    for (const Row& row : report.rows)
        text += line(title(row), width, columns(row.counts));
    return text + line("total", width, columns(report.total()));
}

json::object counted(json::object object, const Counts& counts)
{
    object["passed"] = counts.passed;
    object["failed"] = counts.failed;
    object["known"] = counts.known;
    object["notApplicable"] = counts.notApplicable;
    return object;
}

json::array paths(const std::vector<std::filesystem::path>& files)
{
    json::array array;
    for (const auto& file : files)
        array.emplace_back(file.string());
    return array;
}

}  // namespace

std::string asText(const Report& report)
{
    std::string text;
    for (const FailedCase& failure : report.failures)
        text += "FAILED " + failure.file + ": " + failure.name + ": expected " + failure.expected +
                ", found " + failure.found + "\n";
    for (const KnownCase& known : report.known)
        text += "known " + known.file + ": " + known.name + ": " + known.reason + "\n";
    for (const auto& file : report.passedOver)
        text += "passed over " + file.string() + ": there is no code for it\n";
    if (!report.missing.empty())
        text += "in none of the folders: " + boost::algorithm::join(report.missing, ", ") + "\n";
    return text + table(report);
}

std::string asJSON(const Report& report)
{
    json::array files, failures, known;
    for (const Row& row : report.rows)
        files.push_back(counted({{"file", row.file}, {"label", row.label}}, row.counts));
    for (const FailedCase& failure : report.failures)
        failures.push_back({{"file", failure.file},
                            {"case", failure.name},
                            {"expected", failure.expected},
                            {"found", failure.found}});
    for (const KnownCase& each : report.known)
        known.push_back({{"file", each.file}, {"case", each.name}, {"reason", each.reason}});
    const json::object whole{{"files", std::move(files)},
                             {"failures", std::move(failures)},
                             {"known", std::move(known)},
                             {"passedOver", paths(report.passedOver)},
                             {"missing", json::array(report.missing.begin(), report.missing.end())},
                             {"total", counted({}, report.total())}};
    return json::serialize(whole) + "\n";
}

}  // namespace conformance
