#include "tools/shared/Printing.hpp"

#include "Platform/Coding/JSONCoding.hpp"
#include "tools/shared/Terminal.hpp"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace commandline
{
namespace
{

using platform::JSONWriter;

std::string jsonText(const Report& report)
{
    std::string text;
    JSONWriter json(text);
    json.beginObject();
    writeError(report, json);
    json.endObject();
    return harmlessJSON(text) + "\n";
}

void printLine(std::string_view program, const std::string& sentence, const std::string& next)
{
    const bool colours = takesColours(STDERR_FILENO);
    const auto text = styled(std::string(program) + ":", Style::error, colours) + " " +
                      printable(sentence) + (next.empty() ? "" : " " + printable(next)) + "\n";
    std::fputs(text.c_str(), stderr);
}

}  // namespace

void writeError(const Report& report, JSONWriter& json)
{
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
}

std::string harmlessJSON(std::string_view json)
{
    std::string harmless;
    for (const char c : json)
    {
        const auto byte = static_cast<unsigned char>(c);
        char escaped[8] = {c, '\0'};
        if (byte >= 0x80 && byte < 0xA0 && harmless.ends_with('\xC2'))
        {
            harmless.pop_back();
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
        }
        else if (byte == 0x7F)
            std::snprintf(escaped, sizeof escaped, "\\u007f");
        harmless += escaped;
    }
    return harmless;
}

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

void print(std::string_view program, const Report& report, bool json)
{
    if (json)
        return print(jsonText(report));
    print(program, report.diagnostics);
    printLine(program, report.message, report.next);
}

int fail(std::string_view program, const Report& report, bool json)
{
    try
    {
        print(program, report, json);
    }
    catch (const Failure&)
    {
        // Nobody can be told on standard output; the exit code still says what happened.
        std::fputs((std::string(program) + ": The output could not be written.\n").c_str(), stderr);
    }
    return static_cast<int>(report.exitCode);
}

void print(std::string_view program, const std::vector<platform::Diagnostic>& diagnostics)
{
    for (const auto& diagnostic : diagnostics)
        printLine(program, asSentence(diagnostic.cause), asSentence(diagnostic.nextStep));
}

}  // namespace commandline
