#pragma once

#include "tools/conformance/DataFiles.hpp"
#include "tools/conformance/KnownDisagreements.hpp"

#include <chrono>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace conformance
{

struct Settings
{
    std::vector<std::filesystem::path> folders;
    /// Judges only the cases whose "FILE: NAME" holds this text.
    std::string filter;
    std::chrono::milliseconds timeLimit{10'000};
    bool json = false;
    /// Hears of every verdict, with how many of the file's cases have theirs and how many there
    /// are.
    std::function<void(std::string_view file, std::size_t judged, std::size_t all)> progress = {};
};

struct Counts
{
    std::size_t passed = 0;
    std::size_t failed = 0;
    std::size_t known = 0;
    std::size_t notApplicable = 0;

    std::size_t judged() const { return passed + failed + known; }
};

struct Row
{
    std::string file;
    std::string label;
    Counts counts;
};

struct FailedCase
{
    std::string file;
    std::string name;
    std::string expected;
    std::string found;
};

struct KnownCase
{
    std::string file;
    std::string name;
    std::string reason;
};

/// What a run found.
struct Report
{
    std::vector<Row> rows;
    std::vector<FailedCase> failures;
    std::vector<KnownCase> known;
    std::vector<std::filesystem::path> passedOver;
    std::vector<std::string> missing;

    Counts total() const;
};

/// Judges what the folders hold. Throws `Failure` when a folder or file cannot be read, when there
/// is nothing to judge, and when there can be no child process.
Report run(const Settings& settings, std::span<const Judge> judges,
           std::span<const KnownDisagreement> known);

}  // namespace conformance
