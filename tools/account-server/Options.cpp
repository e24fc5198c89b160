#include "tools/account-server/Options.hpp"

#include "tools/account-server/Failure.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdlib>
#include <iostream>
#include <vector>

namespace accountserver
{
namespace
{

constexpr auto purpose =
    R"(The account server for development: HTTPS on localhost, real accounts, codes and tokens.

Its state folder holds its certificate authority, the key that signs tokens, the database and the
mailbox; a restart keeps them all. When it is ready it prints
"listening on https://localhost:PORT/" and has written the environment file.)";

constexpr auto epilogue = R"(
Exit codes:
  0  stopped by SIGINT or SIGTERM, or the code was printed
  1  something failed while running
  2  the options are wrong
  3  the state folder cannot be used: permissions, another server, written by a newer server
  4  a port cannot be used
  5  mailbox: no code was sent to the address

Examples:
  tessera-account-server --state /tmp/accounts --port 0 --ready-file /tmp/accounts.ready
  tessera-account-server mailbox --state /tmp/accounts --email anna@example.org
  tessera-account-server --control 8444 &
  curl -H 'X-Control: 1' -d '{"advance":600}' http://127.0.0.1:8444/clock)";

std::filesystem::path defaultState()
{
    if (const char* folder = std::getenv("XDG_STATE_HOME"); folder != nullptr && *folder == '/')
        return std::filesystem::path(folder) / "tessera-account-server";
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home != nullptr ? home : ".") / ".local/state" /
           "tessera-account-server";
}

void addClient(Settings& settings, const std::string& text)
{
    const auto place = text.find('=');
    if (place == std::string::npos || place == 0 || place + 1 == text.size())
        throw CLI::ValidationError("--client", text + " is not NAME=IDENTIFIER");
    settings.clients[text.substr(0, place)] = text.substr(place + 1);
}

/// The values as the command line has them, before they become settings.
struct Values
{
    Settings settings;
    std::vector<std::string> clients;
    std::uint16_t control = 0;
    long long codeLifetime = 600;
    long long reauthenticateAfter = 900;
    long long idleTime = 60;
    std::string email;
    bool quiet = false;
};

void addServing(CLI::App& app, Values& values)
{
    auto& settings = values.settings;
    constexpr auto files = "Files";
    app.add_option("--environment-file", settings.environmentFile,
                   "Where to write the environment file (default: environment.json in the state "
                   "folder)")
        ->group(files);
    app.add_option("--ready-file", settings.readyFile,
                   "Written when the server is ready, removed when it ends")
        ->group(files);

    constexpr auto network = "Network";
    app.add_option("--port", settings.port, "Port on 127.0.0.1 and ::1; 0 picks a free one")
        ->capture_default_str()
        ->group(network);
    app.add_option("--control", values.control,
                   "Open the control interface at this port of 127.0.0.1; 0 picks a free one")
        ->group(network);
    app.add_option("--idle-time", values.idleTime, "Seconds that a silent client may take")
        ->capture_default_str()
        ->check(CLI::Range(1LL, 86'400LL))
        ->group(network);

    constexpr auto accounts = "Accounts";
    app.add_option("--client", values.clients,
                   "Register a program: its name as the user agent shows it, and its identifier "
                   "(NAME=IDENTIFIER; may be repeated). Registered already: Tessera, Editor, "
                   "Example, Benchmark")
        ->group(accounts);
    app.add_option("--algorithm", settings.algorithm, "Signs tokens: RS256, RS384, RS512")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Algorithm>{
            {"RS256", Algorithm::rs256}, {"RS384", Algorithm::rs384}, {"RS512", Algorithm::rs512}}))
        ->group(accounts);
    app.add_option("--terms", settings.termsRevision,
                   "Revision of the terms, published when the state folder is new")
        ->capture_default_str()
        ->group(accounts);
    app.add_option("--name", settings.name, "Name of the environment")
        ->capture_default_str()
        ->group(accounts);
    app.add_option("--code-lifetime", values.codeLifetime, "Seconds that a code is valid")
        ->capture_default_str()
        ->check(CLI::Range(1LL, 86'400LL))
        ->group(accounts);
    app.add_option("--codes-per-hour", settings.codesPerHour,
                   "Codes that are mailed to one address; 0: no limit")
        ->capture_default_str()
        ->check(CLI::Range(0, 1'000'000))
        ->group(accounts);
    app.add_option("--code-tries", settings.codeTries, "Wrong tries that spoil a code")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000))
        ->group(accounts);
    app.add_option("--reauthenticate-after", values.reauthenticateAfter,
                   "Seconds after which a sign-in is too old to delete the account; 0: never")
        ->capture_default_str()
        ->check(CLI::Range(0LL, 31'536'000LL))
        ->group(accounts);

    constexpr auto output = "Mail and output";
    app.add_option("--smtp", settings.smtp,
                   "HOST:PORT of an SMTP server that takes the mails, without login or TLS "
                   "(default: the folder mailbox in the state folder, and standard output)")
        ->group(output);
    app.add_option("--smtp-from", settings.sender, "Sender of the mails")
        ->capture_default_str()
        ->group(output);
    app.add_flag("--quiet", values.quiet, "Print neither mailed codes nor requests")->group(output);
}

Settings settingsFrom(const Values& values, bool control)
{
    auto settings = values.settings;
    for (const auto& client : values.clients)
        addClient(settings, client);
    if (control)
        settings.controlPort = values.control;
    settings.codeLifetime = std::chrono::seconds(values.codeLifetime);
    settings.reauthenticateAfter = std::chrono::seconds(values.reauthenticateAfter);
    settings.idleTime = std::chrono::seconds(values.idleTime);
    settings.printMail = settings.logRequests = !values.quiet;
    return settings;
}

}  // namespace

std::variant<Settings, ReadMailbox, Done> parseOptions(int count, const char* const* arguments)
{
    CLI::App app(purpose, "tessera-account-server");
    app.footer(epilogue);
    app.set_version_flag("--version", "tessera-account-server " TESSERA_VERSION,
                         "Show the version and end");
    app.fallthrough();
    Values values;
    values.settings.state = defaultState();
    app.add_option("--state", values.settings.state, "The state folder, made when it is missing")
        ->capture_default_str()
        ->group("Files");
    addServing(app, values);
    auto* mailbox =
        app.add_subcommand("mailbox", "Print the code of the newest mail to an address");
    mailbox->add_option("--email", values.email, "The address")->required();

    try
    {
        app.parse(count, arguments);
        if (mailbox->parsed())
            return ReadMailbox{values.settings.state, values.email};
        return settingsFrom(values, app.count("--control") > 0);
    }
    catch (const CLI::CallForHelp&)
    {
        std::cout << app.help();
        return Done{static_cast<int>(ExitCode::success)};
    }
    catch (const CLI::CallForVersion& version)
    {
        std::cout << version.what() << "\n";
        return Done{static_cast<int>(ExitCode::success)};
    }
    catch (const CLI::ParseError& error)
    {
        std::cerr << "tessera-account-server: " << error.what()
                  << ". Run it with --help for the options.\n";
        return Done{static_cast<int>(ExitCode::usage)};
    }
}

}  // namespace accountserver
