#include "tools/tessera/SessionPrinting.hpp"

#include "Platform/Security/SecretCoding.hpp"
#include "tools/tessera/SessionTexts.hpp"

#include <boost/describe/enum_to_string.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <unistd.h>

#include <cmath>
#include <ctime>
#include <utility>

namespace commandline
{
namespace
{

using platform::JSONWriter;
using platform::SecretString;
using tessera::AccountDiagnostic;
using tessera::AccountInfo;
using tessera::AccountInfoFreshnes;
using tessera::AccountPendingProfile;
using tessera::AccountProfile;
using tessera::AccountProfileSource;
using tessera::AccountState;
using tessera::AccountTransition;

/// The date after a pattern of `strftime`; absent for a moment that no calendar holds.
std::optional<std::string> dateText(platform::Date date, const char* pattern,
                                    std::tm* (*parts)(const std::time_t*, std::tm*))
{
    constexpr double lastSecondOf9999 = 253'402'300'799;
    if (!(std::abs(date.secondsSince1970) <= lastSecondOf9999))
        return std::nullopt;
    const auto seconds = static_cast<std::time_t>(std::floor(date.secondsSince1970));
    std::tm broken{};
    parts(&seconds, &broken);
    char text[60];
    const auto size = std::strftime(text, sizeof text, pattern, &broken);
    return std::string(text, size);
}

std::optional<std::string> forScripts(platform::Date date)
{
    return dateText(date, "%Y-%m-%dT%H:%M:%SZ", ::gmtime_r);
}

std::string local(platform::Date date)
{
    return dateText(date, "%Y-%m-%d %H:%M:%S", ::localtime_r).value_or("no calendar's time");
}

template <class Enum>
std::string nameOf(Enum value)
{
    return boost::describe::enum_to_string(value, "");
}

/// Lines of a label and a value, the values below each other.
class Table
{
public:
    explicit Table(bool colours) : colours_(colours) {}

    void heading(std::string title)
    {
        text_.append(styled(std::move(title), Style::heading, colours_) + "\n");
    }
    void add(std::string_view label, std::string_view value)
    {
        begin(label, value);
        text_.append("\n");
    }
    void add(std::string_view label, std::string_view value, std::string note, Style style)
    {
        begin(label, value);
        text_.append(" " + styled("(" + std::move(note) + ")", style, colours_) + "\n");
    }
    void add(std::string_view label, std::string value, Style style)
    {
        begin(label, "");
        text_.append(styled(printable(value), style, colours_) + "\n");
    }

    SecretString take() { return std::move(text_); }

private:
    void begin(std::string_view label, std::string_view value)
    {
        constexpr std::size_t width = 11;
        std::string padded(label);
        padded.resize(width, ' ');
        text_.append("  " + styled(std::move(padded), Style::label, colours_));
        text_.append(printable(value));
    }

    bool colours_;
    SecretString text_;
};

constexpr auto noAddress = "none: an anonymous account";

void addUser(Table& table, const AccountInfo& account)
{
    table.add("E-mail", account.email ? account.email->view() : noAddress);
    table.add("User", account.user);
    if (account.uuid)
        table.add("UUID", boost::uuids::to_string(*account.uuid));
}

void addFreshness(Table& table, const AccountInfo& account)
{
    const bool fresh = account.freshness() == AccountInfoFreshnes::fresh;
    table.add("Issued",
              dateText(account.issuedAt, "%Y-%m-%d %H:%M:%S %Z", ::localtime_r)
                  .value_or("at a moment that no calendar holds"),
              fresh ? "fresh" : "stale", fresh ? Style::good : Style::warning);
}

std::string sourceText(AccountProfileSource source)
{
    return source == AccountProfileSource::local ? "from the keychain" : "from the server";
}

/// What goes wrong in a state that has no account information; it may have several lines.
std::string messageOf(const AccountState& state)
{
    if (const auto* failed = state.get<AccountState::Failed>())
        return failed->errorMessage;
    const auto* pending = state.get<AccountPendingProfile>();
    return pending ? pending->infoErrorMessage.value_or("") : "";
}

}  // namespace

SecretString accountTable(const AccountInfo& account, bool colours)
{
    Table table(colours);
    table.heading("Account");
    addUser(table, account);
    const auto& terms = account.terms;
    if (terms.needsConsent())
        table.add("Terms", terms.currentRevision,
                  terms.acceptedRevision.empty()
                      ? "not accepted yet"
                      : printable(terms.acceptedRevision) + " was accepted",
                  Style::warning);
    else
        table.add("Terms", terms.currentRevision, "accepted", Style::good);
    addFreshness(table, account);
    table.add("For", account.audience, "verified", Style::good);
    return table.take();
}

SecretString statusTable(const AccountState& state, const std::optional<AccountDiagnostic>& problem,
                         bool colours)
{
    Table table(colours);
    table.heading("Session");
    const auto kind = kindOf(state);
    const auto* profile = state.get<AccountProfile>();
    table.add("State", words(kind), styleOf(kind));
    if (profile)
    {
        table.add("Source", sourceText(profile->source));
        addUser(table, profile->info());
        addFreshness(table, profile->info());
    }
    if (const auto* pending = state.get<AccountPendingProfile>())
    {
        table.add("User", pending->tokenJWT.payload.user);
        table.add("Account", "not loaded yet", "tessera refresh", Style::warning);
    }
    if (const auto message = messageOf(state); !message.empty())
        table.add("Message", message, Style::warning);
    if (problem)
        table.add("Problem", problem->message, Style::error);
    return table.take();
}

std::string historyTable(const std::vector<AccountTransition>& history, bool colours)
{
    auto text = styled("History", Style::heading, colours) + "\n";
    if (history.empty())
        return text + "  nothing yet\n";
    for (const auto& transition : history)
    {
        auto state = words(transition.state);
        state.resize(12, ' ');
        text += "  " + styled(local(transition.time), Style::label, colours) + "  " +
                styled(state, styleOf(transition.state), colours) + sentence(transition.cause) +
                "\n";
    }
    return text;
}

namespace
{

/// An object that begins with what all lines for scripts have.
class LineForScripts
{
public:
    explicit LineForScripts(platform::Date time)
    {
        json.beginObject();
        json.member("command", std::string("watch"));
        json.member("time", forScripts(time));
    }
    SecretString take()
    {
        json.endObject();
        text_.append("\n");
        return std::move(text_);
    }

private:
    SecretString text_;

public:
    JSONWriter json{text_};
};

SecretString lineForPeople(platform::Date time, std::string what, Style style,
                           std::string_view details)
{
    const bool colours = takesColours(STDOUT_FILENO);
    if (!details.empty())
        what.resize(12, ' ');
    SecretString text;
    text.append(styled(local(time), Style::label, colours) + "  " + styled(what, style, colours));
    text.append(printable(details));
    text.append("\n");
    return text;
}

}  // namespace

SecretString watchLine(platform::Date time, const AccountState& state, bool json)
{
    if (json)
    {
        LineForScripts line(time);
        writeState(state, line.json);
        return line.take();
    }
    SecretString details;
    if (const auto* profile = state.get<AccountProfile>())
    {
        const auto& email = profile->info().email;
        details.append(email ? email->view() : "an anonymous account");
        details.append(" (" + sourceText(profile->source) + ")");
    }
    details.append(messageOf(state));
    const auto kind = kindOf(state);
    return lineForPeople(time, words(kind), styleOf(kind), details.view());
}

SecretString watchLine(platform::Date time, const AccountDiagnostic& problem, bool json)
{
    if (!json)
        return lineForPeople(time, "problem", Style::error, problem.message);
    LineForScripts line(time);
    writeProblem(problem, line.json);
    return line.take();
}

void writeAccount(const AccountInfo& account, JSONWriter& json)
{
    json.beginObject();
    json.member("user", account.user);
    if (account.uuid)
        json.member("uuid", boost::uuids::to_string(*account.uuid));
    json.member("email", account.email);
    json.member("anonymous", account.isAnonymous());
    json.member("audience", account.audience);
    json.member("issuedAt", forScripts(account.issuedAt));
    json.member("fresh", account.freshness() == AccountInfoFreshnes::fresh);
    json.key("terms");
    json.beginObject();
    json.member("acceptedRevision", account.terms.acceptedRevision);
    json.member("currentRevision", account.terms.currentRevision);
    json.member("needsConsent", account.terms.needsConsent());
    json.endObject();
    json.endObject();
}

void writeState(const AccountState& state, JSONWriter& json)
{
    json.member("state", nameOf(kindOf(state)));
    if (const auto message = messageOf(state); !message.empty())
        json.member("message", message);
    const auto* profile = state.get<AccountProfile>();
    if (!profile)
        return;
    json.member("source",
                std::string(profile->source == AccountProfileSource::local ? "local" : "remote"));
    json.key("account");
    writeAccount(profile->info(), json);
}

void writeProblem(const AccountDiagnostic& problem, JSONWriter& json)
{
    json.key("problem");
    json.beginObject();
    json.member("code", nameOf(problem.code));
    json.member("message", problem.message);
    json.endObject();
}

void writeHistory(const std::vector<AccountTransition>& history, JSONWriter& json)
{
    json.key("history");
    json.beginArray();
    for (const auto& transition : history)
    {
        json.beginObject();
        json.member("time", forScripts(transition.time));
        json.member("state", nameOf(transition.state));
        json.member("cause", nameOf(transition.cause));
        json.endObject();
    }
    json.endArray();
}

}  // namespace commandline
