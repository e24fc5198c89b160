#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace commandline
{

/// The text on one line that a terminal can show: a backslash is doubled, and control characters
/// are written as the bytes that they are, "\x0A". Nothing is lost: `unescaped` takes it back.
std::string escaped(std::string_view text);

/// What `escaped` was made from; nothing where the text is not of its making.
std::optional<std::string> unescaped(std::string_view text);

/// Whether a terminal would show the text as it is: UTF-8 without control characters, but for line
/// ends and tabs.
bool isPlainText(std::string_view text);

}  // namespace commandline
