#include "tools/conformance/Failure.hpp"
#include "tools/conformance/Options.hpp"
#include "tools/conformance/Report.hpp"

#include <unistd.h>

#include <iostream>

namespace
{

using namespace conformance;

constexpr std::string_view clearedLine = "\r\033[K";

/// On a terminal, how far it is; nothing is left of it in the end.
void showProgress(std::string_view file, std::size_t judged, std::size_t all)
{
    constexpr std::size_t shown = 50;
    if (judged == all)
        std::cerr << clearedLine << std::flush;
    else if (all <= shown || judged % shown == 0)
        std::cerr << clearedLine << file << "  " << judged << " of " << all << std::flush;
}

ExitCode judge(Settings settings)
{
    if (::isatty(STDERR_FILENO))
        settings.progress = showProgress;
    const Report report = run(settings, allJudges(), knownDisagreements());
    std::cout << (settings.json ? asJSON(report) : asText(report)) << std::flush;
    return report.total().failed == 0 ? ExitCode::success : ExitCode::casesFailed;
}

}  // namespace

int main(int count, char** arguments)
{
    try
    {
        const auto wish = parseOptions(count, arguments);
        if (const auto* done = std::get_if<Done>(&wish))
            return done->exitCode;
        return static_cast<int>(judge(std::get<Settings>(wish)));
    }
    catch (const std::exception& error)
    {
        std::cerr << "tessera-conformance: " << error.what() << "\n";
        return static_cast<int>(ExitCode::notJudged);
    }
}
