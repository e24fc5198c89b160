#include "Platform/Services/Services.hpp"
#include "tools/fetch/Failure.hpp"
#include "tools/fetch/Options.hpp"
#include "tools/fetch/Output.hpp"
#include "tools/fetch/Printing.hpp"
#include "tools/fetch/Transfer.hpp"
#include "tools/shared/Arguments.hpp"
#include "tools/shared/Printing.hpp"

#include <csignal>
#include <optional>
#include <system_error>

namespace
{

using namespace fetch;

void removeFile(const std::filesystem::path& file)
{
    std::error_code error;
    // A link is removed itself; somebody else may have been faster.
    std::filesystem::remove(file, error);
    if (error)
        throw commandline::Failure(
            {commandline::ExitCode::internal, "deletion",
             "The server has accepted the file, but it could not be removed (" + error.message() +
                 ").",
             "Remove it yourself."});
}

void perform(const Command& command, commandline::Interrupts& interrupts)
{
    // First of all: nothing is fetched, and nothing sent, for a place that takes no file.
    std::optional<OutputFile> output;
    if (!command.output.empty())
        output.emplace(command.output);
    const auto answer = transfer(command, interrupts);
    if (output)
        output->write(answer.body.view(), interrupts);
    if (command.deleteAfter)
        removeFile(command.file);
    if (command.json)
        return printJSON(command, answer);
    if (!output)
        printBody(answer.body, interrupts);
    if (!command.quiet)
        printSummary(command, answer);
}

int execute(const Command& command)
{
    commandline::Interrupts interrupts(platform::services().background);
    try
    {
        perform(command, interrupts);
        return static_cast<int>(commandline::ExitCode::success);
    }
    catch (...)
    {
        const auto report = reportOf(std::current_exception(), interrupts.signal());
        return commandline::fail(programName, report, command.json);
    }
}

int run(int count, char** arguments)
{
    try
    {
        const auto wish = parseOptions(count, arguments);
        if (const auto* command = std::get_if<Command>(&wish))
            return execute(*command);
        commandline::print(std::get<std::string>(wish));
        return static_cast<int>(commandline::ExitCode::success);
    }
    catch (...)
    {
        return commandline::fail(programName, reportOf(std::current_exception(), 0),
                                 commandline::wantsJSON(count, arguments));
    }
}

}  // namespace

int main(int count, char** arguments)
{
    commandline::prepareStandardDescriptors();
    // A file that would become too large is an output that cannot be written.
    std::signal(SIGXFSZ, SIG_IGN);
    return run(count, arguments);
}
