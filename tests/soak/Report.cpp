#include "tests/soak/Report.hpp"

#include <unistd.h>
#include <cstdio>
#include <iostream>

namespace soak
{
namespace
{

// After so many the rest is of one kind with them, and only counted.
constexpr std::uint64_t toldFailures = 20;
constexpr auto progressEvery = std::chrono::milliseconds(200);

}  // namespace

Report::Report(std::string name, std::uint64_t total, std::uint64_t seed)
    : name_(std::move(name)), total_(total), terminal_(isatty(STDERR_FILENO) == 1)
{
    std::cout << name_ << ": seed " << seed << std::endl;
}

void Report::passed(std::uint64_t cases)
{
    passed_ += cases;
    showProgress();
}

void Report::failed(const std::string& what)
{
    if (++failed_ <= toldFailures)
        std::cerr << (terminal_ ? "\r\x1b[K" : "") << name_ << ": FAILED: " << what << std::endl;
    showProgress();
}

void Report::judged(const std::string& wrong, const std::string& where)
{
    if (wrong.empty())
        passed();
    else
        failed(where + ": " + wrong);
}

void Report::showProgress()
{
    const auto now = std::chrono::steady_clock::now();
    if (!terminal_ || now - shown_ < progressEvery)
        return;
    shown_ = now;
    std::cerr << "\r\x1b[K" << name_ << ": " << cases();
    if (total_ != 0)
        std::cerr << " of " << total_;
    std::cerr << ", " << failed_ << " failed" << std::flush;
}

int Report::close(const std::string& detail)
{
    if (terminal_)
        std::cerr << "\r\x1b[K" << std::flush;
    if (!detail.empty())
        std::cout << name_ << ": " << detail << '\n';
    std::cout << name_ << ": " << passed_ << " passed, " << failed_ << " failed" << std::endl;
    return failed_ == 0 && passed_ != 0 ? 0 : 1;
}

}  // namespace soak
