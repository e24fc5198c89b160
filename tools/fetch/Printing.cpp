#include "tools/fetch/Printing.hpp"

#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/JSONCoding.hpp"
#include "Platform/Coding/Text.hpp"
#include "tools/fetch/Output.hpp"
#include "tools/fetch/ProgressText.hpp"
#include "tools/shared/Failure.hpp"
#include "tools/shared/Printing.hpp"
#include "tools/shared/Terminal.hpp"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <system_error>
#include <vector>

namespace fetch
{
namespace
{

using commandline::ExitCode;
using commandline::Failure;
using commandline::printable;

/// Text that was made for people, line by line.
std::string forTerminal(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos || !platform::isValidUTF8(text))
        throw Failure({ExitCode::usage, "binaryAnswer",
                       "The answer is not plain text, and a terminal might obey it.",
                       "Name a file for it with --output, or send it to a pipe."});
    std::string lines;
    while (!text.empty())
    {
        const auto end = text.find('\n');
        auto line = text.substr(0, end);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        lines += printable(line) + "\n";
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

void writeBody(std::span<const std::byte> body, const commandline::Interrupts& interrupts)
{
    try
    {
        writeAll(STDOUT_FILENO, body, interrupts);
    }
    catch (const std::system_error& error)
    {
        throw Failure({ExitCode::internal, "output",
                       "The output could not be written (" + error.code().message() + ").",
                       "Check the place that it goes to."});
    }
}

std::string sentText(const Answer& answer, const Done& done)
{
    const auto sent = "Sent " + sizeText(answer.sent);
    const auto status = std::to_string(platform::httpStatusCode(answer.response));
    if (answer.sent >= done.size)
        return sent + "; the server answered " + status + ".";
    return sent + " of " + sizeText(done.size) + ": the server answered " + status +
           " and did not wait for the rest.";
}

}  // namespace

void printBody(const platform::SecretBytes& body, const commandline::Interrupts& interrupts)
{
    if (!commandline::isTerminal(STDOUT_FILENO))
        return writeBody(body.view(), interrupts);
    const platform::SecretString text(body);
    const auto lines = forTerminal(text.view());
    writeBody(std::as_bytes(std::span(lines)), interrupts);
}

void printJSON(const Command& command, const Answer& answer, const Done& done)
{
    const platform::SecretString body(answer.body);
    std::string text;
    platform::JSONWriter json(text);
    json.beginObject();
    json.member("command", std::string(word(command.verb)));
    json.member("status", platform::httpStatusCode(answer.response));
    json.member("attempts", answer.attempts);
    if (command.verb == Verb::put)
    {
        json.member("sent", answer.sent);
        json.member("whole", answer.sent >= done.size);
        json.member("deleted", done.deleted);
    }
    json.member("received", static_cast<std::int64_t>(answer.body.size()));
    if (const auto type = answer.response.headers.value("Content-Type"))
        json.member("type", std::string(*type));
    if (!command.output.empty())
        json.member("output", command.output.string());
    else if (platform::isValidUTF8(body.view()))
        json.member("text", std::string(body.view()));
    else
        json.member("base64", platform::encodeBase64(answer.body.view()));
    if (done.kept)
        commandline::writeError(*done.kept, json);
    json.endObject();
    commandline::print(commandline::harmlessJSON(text) + "\n");
}

void printSummary(const Command& command, const Answer& answer, const Done& done)
{
    const bool whole = answer.sent >= done.size;
    if (command.quiet && whole)
        return;
    std::vector<std::string> sentences;
    if (command.verb == Verb::put)
        sentences.push_back(sentText(answer, done));
    if (!command.output.empty())
        sentences.push_back("Saved " + sizeText(static_cast<std::int64_t>(answer.body.size())) +
                            " to " + printable(command.output.string()) + ".");
    if (done.deleted)
        sentences.push_back("Removed " + printable(command.file.string()) + ".");
    std::string line;
    for (const auto& sentence : sentences)
        line += (line.empty() ? "" : " ") + sentence;
    if (!line.empty())
        std::fputs((line + "\n").c_str(), stderr);
}

}  // namespace fetch
