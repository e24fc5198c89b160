#include "tools/shared/Arguments.hpp"

#include "tools/shared/Failure.hpp"

#include <fcntl.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <csignal>
#include <span>

namespace commandline
{
namespace
{

/// A standard descriptor that the caller closed would else be the number of the next file that is
/// opened, and the output would go there. What takes its place fails as the closed one would.
void occupyStandardDescriptors()
{
    for (const int descriptor : {0, 1, 2})
        if (::fcntl(descriptor, F_GETFD) < 0)
            ::open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
}

/// The last subcommand that was recognised, or the program itself.
const CLI::App& innermost(const CLI::App& app)
{
    const auto parsed = app.get_subcommands();
    return parsed.empty() ? app : innermost(*parsed.front());
}

/// Named if it can be no code and no address, and stands where no passphrase could.
std::string unknownCommand(const std::string& word, const CLI::App& parent)
{
    const auto fits = [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; };
    const bool isNearTop =
        parent.get_parent() == nullptr || parent.get_parent()->get_parent() == nullptr;
    if (!isNearTop || !std::ranges::all_of(word, fits))
        return "There is no such command.";
    return "The command \"" + word + "\" is not known.";
}

std::string sentence(const CLI::ParseError& error, const CLI::App& app)
{
    const auto extras = app.remaining(true);
    const auto& parent = innermost(app);
    // What follows a command that is mistyped is meant for that command.
    if (parent.get_require_subcommand_min() > 0 && !extras.empty() &&
        !extras.front().starts_with('-'))
        return unknownCommand(extras.front(), parent);
    const bool isExtra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    // An option that is mistyped explains what is missing, too.
    if (isExtra || dynamic_cast<const CLI::RequiredError*>(&error) != nullptr)
        for (const auto& extra : extras)
            if (extra.starts_with("--") && extra.size() > 2)
                return "The option " + extra.substr(0, extra.find('=')) + " is not known here.";
    if (isExtra)
        return "There is an argument that is not expected here.";
    std::string text = error.what();
    text = text.substr(0, text.find('\n'));
    while (text.ends_with('.'))
        text.pop_back();
    return text + ".";
}

/// Of the innermost subcommand that was recognised.
std::string helpOf(const CLI::App& app)
{
    std::string words = app.get_name();
    const auto* innermost = &app;
    while (!innermost->get_subcommands().empty())
    {
        innermost = innermost->get_subcommands().front();
        words += " " + innermost->get_name();
    }
    return "See \"" + words + " --help\".";
}

}  // namespace

void prepareStandardDescriptors()
{
    // A reader that went away is an output that cannot be written, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    occupyStandardDescriptors();
}

void refuse(std::string sentence, std::string next)
{
    throw Failure({ExitCode::usage, "usage", std::move(sentence), std::move(next)});
}

std::optional<std::string> parse(CLI::App& app, int count, const char* const* arguments)
{
    try
    {
        app.parse(count, arguments);
        return std::nullopt;
    }
    catch (const CLI::CallForHelp&)
    {
        return app.help();
    }
    catch (const CLI::CallForVersion& version)
    {
        return std::string(version.what()) + "\n";
    }
    catch (const CLI::ParseError& error)
    {
        refuse(sentence(error, app), helpOf(app));
    }
}

bool wantsJSON(int count, const char* const* arguments)
{
    return std::ranges::any_of(std::span(arguments, static_cast<std::size_t>(count)),
                               [](const char* text) { return std::string_view(text) == "--json"; });
}

}  // namespace commandline
