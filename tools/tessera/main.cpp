#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/shared/Arguments.hpp"
#include "tools/tessera/Actions.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/Options.hpp"
#include "tools/tessera/Printing.hpp"
#include "tools/tessera/keychain/KeychainPrinting.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>

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
    return fail("tessera", report, json);
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

/// Ends the process while work on the keychain is under way.
[[noreturn]] void abandon(const Interrupts& interrupts, bool json)
{
    int code = 0;
    try
    {
        throw platform::CancellationError();
    }
    catch (...)
    {
        code = failed(currentReport(interrupts.signal()), json);
    }
    std::fflush(nullptr);
    std::_Exit(code);
}

int execute(const KeychainCommand& command)
{
    Interrupts interrupts(platform::services().background);
    KeychainHost host(command, interrupts, [&] { abandon(interrupts, command.json); });
    try
    {
        const auto result = perform(command, host);
        print(result, host.log().take(), command.json);
        const bool faulty = result.findings && hasFault(*result.findings);
        return static_cast<int>(faulty ? ExitCode::fault : ExitCode::success);
    }
    catch (...)
    {
        auto report = currentReport(interrupts.signal());
        // More exact than what the keychain made of it, whose lines would say the same again.
        const auto unasked = host.asking().unasked();
        if (unasked && report.exitCode == ExitCode::keychain)
            return failed(*unasked, command.json);
        for (auto& diagnostic : host.log().take())
            report.diagnostics.push_back(std::move(diagnostic));
        return failed(report, command.json);
    }
}

int run(int count, char** arguments)
{
    try
    {
        const auto wish = parseOptions(count, arguments);
        if (const auto* command = std::get_if<Command>(&wish))
            return execute(*command);
        if (const auto* command = std::get_if<KeychainCommand>(&wish))
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
    prepareStandardDescriptors();
    return run(count, arguments);
}
