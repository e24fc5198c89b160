#pragma once

#include "tools/conformance/Verdict.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace conformance
{

/// The code for one kind of data file. The functions may throw anything: for `judge` that is a
/// failure of the case, for the others the file cannot be read.
struct Judge
{
    std::string_view file;
    /// What the case is called in reports and in the list of known disagreements.
    std::string (*name)(const boost::json::object& record);
    /// Runs in a child process. `meta` is what the file says about all its cases.
    Verdict (*judge)(const boost::json::object& record, const boost::json::object& meta);
    /// Cases with a label are counted in a line of their own.
    std::string (*label)(const boost::json::object& record) = nullptr;
    /// How many cases are judged at a time. More than one is for cases that mostly wait.
    std::size_t atOnce = 1;
};

/// For cases that wait for a time limit.
inline constexpr std::size_t manyAtOnce = 8;

/// The members of records that most judges need. Throw when there is no such text.
std::string_view textOf(const boost::json::object& record, std::string_view key);

/// A member that holds bytes or code points as an array of numbers.
std::string bytesOf(const boost::json::array& numbers);

/// A name that is the member "id" or "text", the latter quoted.
std::string nameFromID(const boost::json::object& record);
std::string nameFromText(const boost::json::object& record);

/// The judges of each source file, and all of them.
std::span<const Judge> addressJudges();
std::span<const Judge> codingJudges();
std::span<const Judge> dateJudges();
std::span<const Judge> extrasJudges();
std::span<const Judge> faultJudges();
std::span<const Judge> languageJudges();
std::span<const Judge> recordJudges();
std::span<const Judge> signatureJudges();
std::span<const Judge> suiteJudges();
std::span<const Judge> textJudges();
std::span<const Judge> tlsJudges();
std::span<const Judge> tokenJudges();
std::vector<Judge> allJudges();

}  // namespace conformance
