#include "tools/tessera/Watching.hpp"

#include "tools/tessera/Printing.hpp"
#include "tools/tessera/SessionPrinting.hpp"

#include <deque>

namespace commandline
{
namespace
{

/// What was published and is not printed yet. Handlers must not throw, and printing may.
using Lines = std::deque<platform::SecretString>;

void printAll(Lines& lines)
{
    for (; !lines.empty(); lines.pop_front())
        print(lines.front().view());
}

}  // namespace

void watch(Host& host, bool json)
{
    const auto now = [] { return platform::services().clock->now(); };
    Lines lines;
    const auto states = host.account().statePublisher().subscribe(
        [&](const tessera::AccountState& state)
        { lines.push_back(watchLine(now(), state, json)); });
    const auto problems = host.account().diagnosticPublisher().subscribe(
        [&](const std::optional<tessera::AccountDiagnostic>& diagnostic)
        {
            if (diagnostic)
                lines.push_back(watchLine(now(), *diagnostic, json));
        });

    printAll(lines);
    // A stored session that is not the server's may be replaced by another program.
    static_cast<void>(host.restore());
    while (true)
    {
        printAll(lines);
        host.runUntil([&] { return !lines.empty(); });
        if (lines.empty())
            return;
    }
}

}  // namespace commandline
