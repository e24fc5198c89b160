#include "tools/conformance/Options.hpp"

#include "tools/conformance/Failure.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cmath>
#include <iostream>

namespace conformance
{
namespace
{

constexpr auto purpose =
    R"(Judges this build of the account framework by data files of cases with stated answers.

It knows the files by their names, in any of the folders, and passes over what it does not know.
Every case is judged in a child process: a crash or a hang is a failure of that case alone.
Cases that call a server have one on a loopback port of this machine, and certificates made for
the run. With a terminal as standard error, a line there tells how far the run is.)";

constexpr auto epilogue = R"(
Exit codes:
  0  every case passed, is a known disagreement or is not applicable
  1  some case failed, or a known disagreement passes
  2  the options are wrong
  3  nothing was judged, or a folder or a data file cannot be read

Examples:
  tessera-conformance corpora vectors
  tessera-conformance corpora --filter jws_compact.json
  tessera-conformance vectors --filter 'json.json: AccountInfo' --time-limit 0.5 --json)";

}  // namespace

std::variant<Settings, Done> parseOptions(int count, const char* const* arguments)
{
    CLI::App app(purpose, "tessera-conformance");
    app.footer(epilogue);
    app.set_version_flag("--version", "tessera-conformance " TESSERA_VERSION,
                         "Show the version and end");
    Settings settings;
    double seconds = std::chrono::duration<double>(settings.timeLimit).count();
    app.add_option("FOLDER", settings.folders, "Folders with data files")->required();
    app.add_option("--filter", settings.filter,
                   "Judge only the cases whose \"FILE: NAME\" holds this text");
    app.add_option("--time-limit", seconds, "Seconds for one case")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 3600.0));
    app.add_flag("--json", settings.json, "Print the report as one JSON object");
    try
    {
        app.parse(count, arguments);
    }
    catch (const CLI::CallForHelp&)
    {
        std::cout << app.help();
        return Done{static_cast<int>(ExitCode::success)};
    }
    catch (const CLI::CallForVersion& version)
    {
        std::cout << version.what() << "\n";
        return Done{static_cast<int>(ExitCode::success)};
    }
    catch (const CLI::ParseError& error)
    {
        std::cerr << "tessera-conformance: " << error.what()
                  << ". Run it with --help for the options.\n";
        return Done{static_cast<int>(ExitCode::usage)};
    }
    settings.timeLimit = std::chrono::milliseconds(std::llround(seconds * 1000));
    return settings;
}

}  // namespace conformance
