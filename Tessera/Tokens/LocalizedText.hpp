#pragma once

#include <string>
#include <string_view>

namespace tessera
{

/// The text of `key` in the framework's own string table, in the user's language; empty when there
/// is no such key. A bundle that cannot be found stops the process: the program was installed
/// without its resources.
std::string localizedText(std::string_view key);

/// The same stop, before a text is needed: whoever tests only what succeeds would not see it.
void requireLocalizedTexts();

}  // namespace tessera
