#include "tools/conformance/Failure.hpp"
#include "tools/conformance/Options.hpp"
#include "tools/conformance/Report.hpp"

#include <iostream>

namespace
{

using namespace conformance;

ExitCode judge(const Settings& settings)
{
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
