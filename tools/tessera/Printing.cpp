#include "tools/tessera/Printing.hpp"

#include "Platform/Coding/JSONWriter.hpp"
#include "Platform/Security/SecretCoding.hpp"
#include "tools/tessera/SessionPrinting.hpp"
#include "tools/tessera/Terminal.hpp"

#include <unistd.h>

#include <cstdio>
#include <vector>

namespace commandline
{
namespace
{

using platform::JSONWriter;
using platform::SecretString;

std::string_view nameOf(ServerSignOut onServer)
{
    switch (onServer)
    {
        case ServerSignOut::confirmed:
            return "confirmed";
        case ServerSignOut::unconfirmed:
            return "unconfirmed";
        case ServerSignOut::noAnswer:
            return "noAnswer";
        case ServerSignOut::notAsked:
            return "notAsked";
        case ServerSignOut::notNeeded:
            return "notNeeded";
    }
    return "";
}

SecretString jsonText(const Result& result)
{
    SecretString text;
    JSONWriter json(text);
    json.beginObject();
    json.member("command", std::string(word(result.verb)));
    if (result.account)
    {
        json.key("account");
        writeAccount(*result.account, json);
    }
    json.member("revision", result.revision);
    if (result.onServer)
        json.member("server", std::string(nameOf(*result.onServer)));
    if (result.state)
        writeState(*result.state, json);
    if (result.diagnostic)
        writeProblem(*result.diagnostic, json);
    if (result.history)
        writeHistory(*result.history, json);
    if (!result.diagnostics.empty())
        writeDiagnostics(result.diagnostics, json);
    json.endObject();
    text.append("\n");
    return text;
}

std::string jsonText(const Report& report)
{
    std::string text;
    JSONWriter json(text);
    json.beginObject();
    json.key("error");
    json.beginObject();
    json.member("class", std::string(className(report.exitCode)));
    json.member("name", report.name);
    json.member("message", report.message);
    json.member("next", report.next);
    json.member("exitCode", static_cast<int>(report.exitCode));
    if (!report.diagnostics.empty())
        writeDiagnostics(report.diagnostics, json);
    json.endObject();
    json.endObject();
    return text + "\n";
}

void printLine(const std::string& sentence, const std::string& next)
{
    const bool colours = takesColours(STDERR_FILENO);
    const auto text = styled("tessera:", Style::error, colours) + " " + printable(sentence) +
                      (next.empty() ? "" : " " + printable(next)) + "\n";
    std::fputs(text.c_str(), stderr);
}

std::string sentenceOf(ServerSignOut onServer)
{
    switch (onServer)
    {
        case ServerSignOut::confirmed:
            return "You are signed out.\n";
        case ServerSignOut::unconfirmed:
            return "You are signed out here, but the server did not confirm it. The session may "
                   "last there until it expires.\n";
        case ServerSignOut::noAnswer:
            return "You are signed out here, but the server did not answer within 5 seconds. The "
                   "session may last there until it expires.\n";
        case ServerSignOut::notAsked:
            return "The stored session was not this server's, or damaged; it was removed, and the "
                   "server was not told.\n";
        case ServerSignOut::notNeeded:
            return "You were not signed in.\n";
    }
    return "";
}

std::string sentence(const Result& result)
{
    switch (result.verb)
    {
        case Verb::requestCode:
            return "A code is on its way. Sign in with it: tessera sign-in.\n";
        case Verb::signIn:
            return "You are signed in, in all programs of this user.\n";
        case Verb::refresh:
            return "The account information is current.\n";
        case Verb::consent:
            return "The terms " + printable(result.revision.value_or("")) + " are accepted.\n";
        case Verb::newsletter:
            return "You are subscribed to the newsletter.\n";
        case Verb::signOut:
            return sentenceOf(result.onServer.value_or(ServerSignOut::notNeeded));
        case Verb::delete_:
            return "The account is deleted.\n";
        case Verb::info:
        case Verb::status:
        case Verb::watch:
            break;
    }
    return "";
}

}  // namespace

void writeDiagnostics(const std::vector<platform::Diagnostic>& diagnostics, JSONWriter& json)
{
    json.key("diagnostics");
    json.beginArray();
    for (const auto& diagnostic : diagnostics)
    {
        json.beginObject();
        json.member("area", diagnostic.area);
        json.member("cause", asSentence(diagnostic.cause));
        json.member("next", asSentence(diagnostic.nextStep));
        json.endObject();
    }
    json.endArray();
}

void print(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw Failure({ExitCode::internal, "output", "The output could not be written.",
                       "Check the place that it goes to."});
}

void print(const Result& result, bool json)
{
    // What there is to see of it has been printed line by line.
    if (result.verb == Verb::watch)
        return;
    if (json)
        return print(jsonText(result).view());
    print(result.diagnostics);
    print(sentence(result));
    const bool colours = takesColours(STDOUT_FILENO);
    if (result.account)
        print(accountTable(*result.account, colours).view());
    if (result.verb == Verb::status)
        print(statusTable(*result.state, result.diagnostic, colours).view());
    if (result.history)
        print(historyTable(*result.history, colours));
}

void print(const Report& report, bool json)
{
    if (json)
        return print(jsonText(report));
    print(report.diagnostics);
    printLine(report.message, report.next);
}

void print(const std::vector<platform::Diagnostic>& diagnostics)
{
    for (const auto& diagnostic : diagnostics)
        printLine(asSentence(diagnostic.cause), asSentence(diagnostic.nextStep));
}

}  // namespace commandline
