#include "tools/tessera/Printing.hpp"

#include "Platform/Coding/JSONWriter.hpp"
#include "Platform/Security/SecretCoding.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/SessionPrinting.hpp"

#include <unistd.h>

#include <cstdio>
#include <vector>

namespace commandline
{
namespace
{

using platform::JSONWriter;
using platform::SecretString;

constexpr auto programName = "tessera";

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
    print(programName, report, json);
}

void print(const std::vector<platform::Diagnostic>& diagnostics)
{
    print(programName, diagnostics);
}

}  // namespace commandline
