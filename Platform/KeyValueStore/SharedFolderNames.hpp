#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform
{

/// What files in the shared folder are called: a key's value has the key's name, escaped; a draft
/// has the name of its writer, which the kernel's news of its renaming repeats.

/// Nothing for a key that is empty or too long.
std::optional<std::string> fileNameOfKey(std::string_view key);

/// Nothing for a name that no key gets.
std::optional<std::string> keyOfFileName(std::string_view name);

std::string draftNameOfWriter(std::string_view writer);

/// Nothing for a name that is no draft's.
std::optional<std::string> writerOfDraftName(std::string_view name);

/// A name that no other writer has, on this machine or one that shares the folder.
std::string newWriter();

}  // namespace platform
