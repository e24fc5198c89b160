#pragma once

#include <filesystem>

namespace platform
{

/// A folder of the user's after the XDG base directory rules: what `variable` names, `belowHome` in
/// the home folder otherwise. Values that are not absolute count as unset; empty where there is no
/// home either.
std::filesystem::path userFolder(const char* variable, const char* belowHome);

}  // namespace platform
