#include "Platform/Services/Services.hpp"
#include "tools/fetch/Failure.hpp"
#include "tools/fetch/Options.hpp"
#include "tools/fetch/Output.hpp"
#include "tools/fetch/Printing.hpp"
#include "tools/fetch/SentFile.hpp"
#include "tools/fetch/Transfer.hpp"
#include "tools/shared/Arguments.hpp"
#include "tools/shared/Printing.hpp"

#include <csignal>
#include <filesystem>
#include <optional>
#include <system_error>

namespace
{

using namespace fetch;

using commandline::ExitCode;

/// The answer would take the place of what is sent, and --delete-after then take it away.
void expectTwoFiles(const Command& command)
{
    std::error_code absent;
    if (command.verb == Verb::put &&
        std::filesystem::equivalent(command.file, command.output, absent))
        commandline::refuse("The file that is sent cannot take the answer, too.",
                            "Name another one with --output.");
}

/// Last of all, so that the answer is where it belongs whatever becomes of the file.
Done finish(const Command& command, const Answer& answer, const std::optional<SentFile>& file)
{
    Done done;
    if (file)
        done.size = file->size();
    if (!command.deleteAfter)
        return done;
    done.kept = file->remove(answer.sent);
    done.deleted = !done.kept;
    return done;
}

ExitCode perform(const Command& command, commandline::Interrupts& interrupts)
{
    expectTwoFiles(command);
    // First of all: nothing is fetched, and nothing sent, for a place that takes no file.
    std::optional<OutputFile> output;
    if (!command.output.empty())
        output.emplace(command.output);
    std::optional<SentFile> file;
    if (command.verb == Verb::put)
        file.emplace(command.file);
    const auto answer = transfer(command, interrupts);
    if (output)
        output->write(answer.body.view(), interrupts);
    else if (!command.json)
        printBody(answer.body, interrupts);
    const auto done = finish(command, answer, file);
    if (command.json)
        printJSON(command, answer, done);
    else
        printSummary(command, answer, done);
    if (!done.kept)
        return ExitCode::success;
    if (!command.json)
        commandline::print(programName, *done.kept, false);
    return done.kept->exitCode;
}

int execute(const Command& command)
{
    commandline::Interrupts interrupts(platform::services().background);
    try
    {
        return static_cast<int>(perform(command, interrupts));
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
        return static_cast<int>(ExitCode::success);
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
