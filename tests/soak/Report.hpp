#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace soak
{

/// Counts the cases of a run, tells the first failures on standard error and shows on a terminal
/// how far it is. Serves one thread.
class Report
{
public:
    /// `total` is 0 where the run does not know beforehand how many cases there are.
    Report(std::string name, std::uint64_t total, std::uint64_t seed);

    void passed(std::uint64_t cases = 1);
    void failed(const std::string& what);

    /// Failed if something is `wrong`; `where` is told before it.
    void judged(const std::string& wrong, const std::string& where);

    std::uint64_t cases() const { return passed_ + failed_; }

    /// Prints `detail` and the closing line; returns the program's exit code. A run without a
    /// single case has shown nothing, and fails.
    int close(const std::string& detail);

private:
    void showProgress();

    const std::string name_;
    const std::uint64_t total_;
    std::uint64_t passed_ = 0;
    std::uint64_t failed_ = 0;
    const bool terminal_;
    std::chrono::steady_clock::time_point shown_;
};

}  // namespace soak
