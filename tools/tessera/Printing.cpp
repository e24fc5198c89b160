#include "tools/tessera/Printing.hpp"

#include "Platform/Coding/JSONWriter.hpp"
#include "Platform/Security/SecretCoding.hpp"
#include "tools/tessera/Terminal.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

namespace commandline
{
namespace
{

using platform::JSONWriter;
using platform::SecretString;
using tessera::AccountInfo;
using tessera::AccountInfoFreshnes;

/// The date in UTC after a pattern of `strftime`; absent for a moment that no calendar holds.
std::optional<std::string> dateText(platform::Date date, const char* pattern)
{
    constexpr double lastSecondOf9999 = 253'402'300'799;
    if (!(std::abs(date.secondsSince1970) <= lastSecondOf9999))
        return std::nullopt;
    const auto seconds = static_cast<std::time_t>(std::floor(date.secondsSince1970));
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[40];
    const auto size = std::strftime(text, sizeof text, pattern, &parts);
    return std::string(text, size);
}

void write(const AccountInfo& account, JSONWriter& json)
{
    json.beginObject();
    json.member("user", account.user);
    if (account.uuid)
        json.member("uuid", boost::uuids::to_string(*account.uuid));
    json.member("email", account.email);
    json.member("anonymous", account.isAnonymous());
    json.member("audience", account.audience);
    json.member("issuedAt", dateText(account.issuedAt, "%Y-%m-%dT%H:%M:%SZ"));
    json.member("fresh", account.freshness() == AccountInfoFreshnes::fresh);
    json.key("terms");
    json.beginObject();
    json.member("acceptedRevision", account.terms.acceptedRevision);
    json.member("currentRevision", account.terms.currentRevision);
    json.member("needsConsent", account.terms.needsConsent());
    json.endObject();
    json.endObject();
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
        write(*result.account, json);
    }
    json.member("revision", result.revision);
    if (!result.tokenFile.empty())
        json.member("tokenFile", result.tokenFile.string());
    if (result.verb == Verb::signOut)
        json.member("alreadyEnded", result.alreadyEnded);
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

/// Lines of a label and a value, the values below each other.
class Table
{
public:
    explicit Table(bool colours) : colours_(colours) {}

    void add(std::string_view label, std::string_view value)
    {
        constexpr std::size_t width = 11;
        std::string padded(label);
        padded.resize(width, ' ');
        text_.append("  " + styled(std::move(padded), Style::label, colours_));
        text_.append(printable(value));
    }
    void add(std::string_view label, std::string_view value, std::string note, Style style)
    {
        add(label, value);
        text_.append(" " + styled("(" + std::move(note) + ")", style, colours_));
    }
    void endLine() { text_.append("\n"); }

    const SecretString& text() const { return text_; }

private:
    bool colours_;
    SecretString text_;
};

void printForPeople(const AccountInfo& account)
{
    const bool colours = takesColours(STDOUT_FILENO);
    Table table(colours);
    table.add("E-mail", account.email ? account.email->view() : "none: an anonymous account");
    table.endLine();
    table.add("User", account.user);
    table.endLine();
    if (account.uuid)
    {
        table.add("UUID", boost::uuids::to_string(*account.uuid));
        table.endLine();
    }
    const auto& terms = account.terms;
    if (terms.needsConsent())
        table.add("Terms", terms.currentRevision,
                  terms.acceptedRevision.empty()
                      ? "not accepted yet"
                      : printable(terms.acceptedRevision) + " was accepted",
                  Style::warning);
    else
        table.add("Terms", terms.currentRevision, "accepted", Style::good);
    table.endLine();
    const bool fresh = account.freshness() == AccountInfoFreshnes::fresh;
    table.add("Issued",
              dateText(account.issuedAt, "%Y-%m-%d %H:%M:%S UTC")
                  .value_or("at a moment that no calendar holds"),
              fresh ? "fresh" : "stale", fresh ? Style::good : Style::warning);
    table.endLine();
    table.add("For", account.audience, "verified", Style::good);
    table.endLine();
    print(styled("Account", Style::heading, colours) + "\n");
    print(table.text().view());
}

void printLine(const std::string& sentence, const std::string& next)
{
    const bool colours = takesColours(STDERR_FILENO);
    const auto text = styled("tessera:", Style::error, colours) + " " + printable(sentence) +
                      (next.empty() ? "" : " " + printable(next)) + "\n";
    std::fputs(text.c_str(), stderr);
}

std::string sentence(const Result& result)
{
    switch (result.verb)
    {
        case Verb::requestCode:
            return "A code is on its way. Sign in with it: tessera sign-in.\n";
        case Verb::signIn:
            return "You are signed in. The token is in " + result.tokenFile.string() + ".\n";
        case Verb::info:
            return "";
        case Verb::consent:
            return "The terms " + printable(result.revision.value_or("")) + " are accepted.\n";
        case Verb::newsletter:
            return "You are subscribed to the newsletter.\n";
        case Verb::signOut:
            return result.alreadyEnded ? "The session had ended already.\n"
                                       : "You are signed out.\n";
        case Verb::delete_:
            return "The account is deleted.\n";
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
    if (json)
        return print(jsonText(result).view());
    print(sentence(result));
    if (result.account)
        printForPeople(*result.account);
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
