#include "Platform/Services/Services.hpp"
#include "tools/tessera/Actions.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/Options.hpp"
#include "tools/tessera/Printing.hpp"

#include <csignal>
#include <cstdio>

namespace
{

using namespace commandline;

/// The failure that is being handled; a cancellation is told by the signal that caused it.
Report currentReport(int signal)
{
    auto report = reportOf(std::current_exception());
    if (report.exitCode == ExitCode::interrupted && signal == SIGTERM)
        report.exitCode = ExitCode::terminated;
    return report;
}

int failed(const Report& report, bool json)
{
    try
    {
        print(report, json);
    }
    catch (const Failure&)
    {
        // Nobody can be told on standard output; the exit code still says what happened.
        std::fputs("tessera: The output could not be written.\n", stderr);
    }
    return static_cast<int>(report.exitCode);
}

int execute(const Command& command)
{
    Interrupts interrupts(platform::services().background);
    try
    {
        print(perform(command, interrupts), command.json);
        return static_cast<int>(ExitCode::success);
    }
    catch (...)
    {
        return failed(currentReport(interrupts.signal()), command.json);
    }
}

int run(int count, char** arguments)
{
    try
    {
        const auto wish = parseOptions(count, arguments);
        if (const auto* command = std::get_if<Command>(&wish))
            return execute(*command);
        print(std::get<std::string>(wish));
        return static_cast<int>(ExitCode::success);
    }
    catch (...)
    {
        return failed(currentReport(0), wantsJSON(count, arguments));
    }
}

}  // namespace

int main(int count, char** arguments)
{
    // A reader that went away is an output that cannot be written, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    return run(count, arguments);
}
