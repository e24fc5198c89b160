#pragma once

#include <stdexcept>
#include <string>

namespace conformance
{

/// The program's exit codes; `--help` lists them.
enum class ExitCode
{
    success = 0,
    casesFailed = 1,
    usage = 2,
    notJudged = 3,
};

/// Why nothing can be judged: one sentence and the next step, for the person at the terminal. It
/// ends the program with `ExitCode::notJudged`.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

}  // namespace conformance
