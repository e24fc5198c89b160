#pragma once

#include "tests/support/TemporaryFolder.hpp"
#include "tools/conformance/Runner.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace conformance
{

/// The names of the cases that fail when the file holds these.
inline std::vector<std::string> failuresOf(std::string_view file, std::string_view cases)
{
    TemporaryFolder folder;
    folder.write(file, cases);
    std::vector<std::string> names;
    const Settings settings{.folders = {folder.path()}, .filter = {}};
    for (const auto& failure : run(settings, allJudges(), {}).failures)
        names.push_back(failure.name);
    return names;
}

}  // namespace conformance
