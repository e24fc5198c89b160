#pragma once

#include <string>
#include <string_view>

namespace commandline
{

/// Whether questions can be asked: input and error output are a terminal.
bool canAsk();

/// Whether this output (a descriptor) is a terminal.
bool isTerminal(int descriptor);

/// Whether this output is a terminal that can take a line back.
bool movesCursor(int descriptor);

/// Whether this output takes colours: a terminal that knows them, and `NO_COLOR` is not set.
bool takesColours(int descriptor);

/// The text without control characters, which could move the cursor or worse: what a server sent
/// reaches a terminal through this alone.
std::string printable(std::string_view text);

/// With a full stop, which libraries may leave out.
std::string asSentence(std::string text);

enum class Style
{
    heading,
    label,
    good,
    warning,
    error,
};

/// The text in this style; unchanged when there are to be no colours.
std::string styled(std::string text, Style style, bool colours);

}  // namespace commandline
