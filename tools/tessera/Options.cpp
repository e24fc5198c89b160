#include "tools/tessera/Options.hpp"

#include "tools/shared/Arguments.hpp"
#include "tools/tessera/keychain/KeychainOptions.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cctype>
#include <map>

namespace commandline
{
namespace
{

constexpr auto purpose = R"(Signs in to an online account and shows what the server says about it.

Every command but "keychain" needs --environment or --preset: they name the server and the key that
its answers are verified with. One sign-in serves all programs of the user: the session is kept in the
user's keychain, and other programs follow at once. "tessera keychain --help" tells about the keychain.)";

constexpr auto epilogue = R"(
Exit codes:
    0  done
    1  something unexpected failed, or the output could not be written
    2  the options are wrong, or a question could not be asked for want of a terminal
    3  the environment file cannot be read, or a field of it cannot be used
    4  network: no connection, no trusted connection, time limit, not HTTP, ...
    5  the server refused
    6  a sign-in is needed: there is no session, it has ended, or it is too old for this; or another
       program signed in or out meanwhile
    7  verification: a token is not the server's, or is for another program or user
    9  a question was not answered, with no, or with a wrong passcode
   10  the keychain cannot be used, or refuses the access
   11  the keychain holds no such item
   12  "keychain doctor" found a fault
  130  interrupted by Ctrl-C (143: by SIGTERM)

Examples:
  tessera request-code --environment env.json --email anna@example.org
  tessera sign-in --environment env.json --email anna@example.org
  tessera info --environment env.json --json
  tessera watch --environment env.json
  tessera status --environment env.json --history
  tessera sign-out --environment env.json
  printf %s "$VALUE" | tessera keychain set --id Notes draft
  tessera keychain doctor)";

struct VerbText
{
    Verb verb;
    const char* word;
    const char* description;
};

constexpr VerbText verbs[] = {
    {Verb::requestCode, "request-code", "Ask the server to mail a one-time code"},
    {Verb::signIn, "sign-in", "Exchange the code for a session, and show the account"},
    {Verb::info, "info", "Fetch, verify and show the account"},
    {Verb::status, "status", "Show where the session stands, without asking the server"},
    {Verb::watch, "watch", "Print each state of the session until Ctrl-C"},
    {Verb::refresh, "refresh", "Load the account information anew"},
    {Verb::consent, "consent", "Accept the terms"},
    {Verb::newsletter, "newsletter", "Subscribe to the newsletter"},
    {Verb::signOut, "sign-out", "End the session here, in all programs, and on the server"},
    {Verb::delete_, "delete", "Delete the account on the server and end the session"},
};

/// The values as the command line has them, before they become a command.
struct Values
{
    Command command;
    std::string code;
    std::string revision;
    int passphraseDescriptor = -1;
    double timeLimit = 0;
};

bool isIdentifier(const std::string& text)
{
    const auto fits = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; };
    return !text.empty() && std::ranges::all_of(text, fits);
}

/// Options of all commands: they may stand before the command's word or after it.
void addCommon(CLI::App& app, Values& values)
{
    auto& command = values.command;
    app.add_option("--environment", command.environmentFile,
                   "The environment file that the account server wrote")
        ->type_name("FILE");
    app.add_option("--preset", command.preset, "A server that is built in")
        ->type_name("NAME")
        ->check(CLI::IsMember(
            {"directProduction", "appleProduction", "directPreview", "applePreview"}));
    app.add_flag("--json", command.json, "Print JSON on standard output, for errors too");
    app.add_option("--time-limit", values.timeLimit,
                   "How long a call may take, at most and by default 60")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 60.0).description(""));
    app.add_option("--client-identifier", command.clientIdentifier,
                   "Speak as another program that the server knows (default: tessera)")
        ->type_name("NAME");
}

void addOwn(CLI::App& app, Verb verb, Values& values)
{
    auto& command = values.command;
    if (verb == Verb::requestCode || verb == Verb::signIn)
        app.add_option("--email", command.email, "The e-mail address of the account")
            ->type_name("ADDRESS")
            ->required();
    if (verb == Verb::signIn)
        app.add_option("--code", values.code,
                       "The one-time code (default: ask for it at the terminal)")
            ->type_name("CODE");
    if (verb == Verb::status)
        app.add_flag("--history", command.history, "Show the last 50 changes, and why");
    if (verb == Verb::consent)
        app.add_option("--revision", values.revision,
                       "The revision of the terms (default: the current one)")
            ->type_name("TEXT");
    if (verb == Verb::delete_)
        app.add_flag("--yes", command.confirmed, "Delete without asking");
    if (verb != Verb::requestCode)
        app.add_option("--passphrase-fd", values.passphraseDescriptor,
                       "Read the keychain's passphrase from this descriptor, to the line's end")
            ->type_name("N")
            ->check(CLI::Range(0, 1'000'000).description(""));
}

Command commandFrom(const Values& values, const CLI::App& app, Verb verb)
{
    Command command = values.command;
    command.verb = verb;
    if (command.environmentFile.empty() == command.preset.empty())
        refuse(command.preset.empty() ? "No server is named."
                                      : "--environment and --preset exclude each other.",
               "Name one with --environment FILE or --preset NAME.");
    if (!isIdentifier(command.clientIdentifier))
        refuse("--client-identifier takes letters, digits, \"-\" and \"_\" alone.",
               "See \"tessera --help\".");
    if (values.passphraseDescriptor >= 0)
        command.passphraseDescriptor = values.passphraseDescriptor;
    if (verb == Verb::signIn && app.count("--code") > 0)
        command.code = platform::SecretString(values.code);
    if (verb == Verb::consent && app.count("--revision") > 0)
        command.revision = values.revision;
    if (values.timeLimit > 0)
        command.timeLimit =
            std::chrono::milliseconds(static_cast<std::int64_t>(values.timeLimit * 1000));
    return command;
}

/// What is about servers has no meaning for the keychain, wherever it stands.
KeychainCommand keychainCommandFrom(const CLI::App& app, const Values& values,
                                    const KeychainOptions& keychain)
{
    for (const auto* option : {"--environment", "--preset", "--time-limit", "--client-identifier"})
        if (app.count(option) > 0)
            refuse(std::string("The option ") + option + " is not known here.",
                   "See \"tessera keychain --help\".");
    auto command = keychain.command();
    command.json = command.json || values.command.json;
    return command;
}

}  // namespace

std::string_view word(Verb verb)
{
    return std::ranges::find(verbs, verb, &VerbText::verb)->word;
}

std::variant<Command, KeychainCommand, std::string> parseOptions(int count,
                                                                 const char* const* arguments)
{
    CLI::App app(purpose, "tessera");
    app.footer(epilogue);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("tessera ") + TESSERA_VERSION,
                         "Show the version and end");
    Values values;
    addCommon(app, values);
    std::map<Verb, CLI::App*> parsers;
    for (const auto& [verb, name, description] : verbs)
    {
        auto* parser = parsers[verb] = app.add_subcommand(name, description);
        parser->footer("\nSee \"tessera --help\" for the exit codes.");
        addOwn(*parser, verb, values);
        addCommon(*parser, values);
    }
    const KeychainOptions keychain(app);

    if (auto text = parse(app, count, arguments))
        return *std::move(text);
    if (keychain.used())
        return keychainCommandFrom(app, values, keychain);
    const auto used =
        std::ranges::find_if(parsers, [](const auto& parser) { return parser.second->parsed(); });
    return commandFrom(values, *used->second, used->first);
}

}  // namespace commandline
