#include "tools/fetch/Options.hpp"

#include "tools/fetch/ProgressText.hpp"
#include "tools/shared/Arguments.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <charconv>
#include <optional>
#include <vector>

namespace fetch
{
namespace
{

using commandline::refuse;

constexpr auto purpose = R"(Downloads from an address, or uploads a file to one.

A download is held in memory until it is whole: 16 MiB of it are taken, or what --body-limit says (above
256 MiB it needs up to twice as much for a moment). A file that is uploaded is not. Addresses are https://...,
or http:// on this machine; redirects are not followed, and the answer must have a status from 200 to 204.)";

constexpr auto epilogue = R"(
Exit codes:
    0  done
    1  something unexpected failed, the output could not be written, or the file of --delete-after was kept
    2  the options, the address or a header are wrong
    3  a file that was named cannot be read
    4  network: no connection, no trusted connection, time limit, body limit, not HTTP, ...
    5  the server refused
  130  interrupted by Ctrl-C (143: by SIGTERM)

Examples:
  tessera-fetch get https://example.net/data.json
  tessera-fetch get https://example.net/image.iso --output image.iso --body-limit 800M --time-limit 600
  tessera-fetch get https://example.net/busy --retries 3 --base-delay 2
  tessera-fetch put report.pdf https://example.net/inbox/report.pdf --header "Content-Type: application/pdf"
  tessera-fetch put log.gz https://localhost:8443/logs --method POST --authority ca.pem --delete-after)";

/// The values as the command line has them, before they become a command.
struct Values
{
    std::string address;
    std::string method = "PUT";
    std::vector<std::string> headers;
    std::string file;
    std::string output;
    std::string authority;
    std::string bodyLimit;
    double timeLimit = 60;
    int retries = 0;
    double baseDelay = 1;
    bool deleteAfter = false;
    bool json = false;
    bool quiet = false;
};

// The longest wait of these, 3600 s doubled 19 times, is far below what a policy may ask for.
constexpr int mostRetries = 20;
constexpr double longestDelay = 3600;
constexpr double longestTimeLimit = 7 * 86'400;

/// Unlike the parser's own range, refuses what is not a number.
class SecondsBetween : public CLI::Validator
{
public:
    SecondsBetween(double least, double most)
    {
        func_ = [least, most](const std::string& text) -> std::string
        {
            double value = 0;
            if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most)
                return "";
            return "Value " + text + " is not a number of seconds from " + secondsText(least) +
                   " to " + secondsText(most);
        };
    }
};

void addCommon(CLI::App& app, Values& values)
{
    app.add_option("--output", values.output,
                   "Write the answer to this file, whole or not at all (default: standard output)")
        ->type_name("FILE");
    app.add_option("--header", values.headers, "Send this header; may be repeated")
        ->type_name("\"NAME: VALUE\"")
        ->allow_extra_args(false);
    app.add_option("--retries", values.retries,
                   "Try again so many times after status 429, 502, 503 or 504 (default: 0)")
        ->type_name("N")
        ->check(CLI::Range(0, mostRetries).description(""));
    app.add_option("--base-delay", values.baseDelay,
                   "Wait half of this before the first retry, this before the second, and twice as "
                   "long before each further one (default: 1)")
        ->type_name("SECONDS")
        ->check(SecondsBetween(0, longestDelay));
    app.add_option("--time-limit", values.timeLimit,
                   "How long each attempt may take as a whole (default: 60)")
        ->type_name("SECONDS")
        ->check(SecondsBetween(0.001, longestTimeLimit));
    app.add_option("--body-limit", values.bodyLimit,
                   "The longest answer that is taken, in bytes or with K, M or G for KiB, MiB or "
                   "GiB; it is held in memory (default: 16M)")
        ->type_name("SIZE");
    app.add_option("--authority", values.authority,
                   "Trust the certificates in this file instead of those of the system")
        ->type_name("PEM");
    app.add_flag("--json", values.json, "Print JSON on standard output, for errors too");
    app.add_flag("--quiet", values.quiet,
                 "Tell of nothing but errors, and of a file that was not sent whole");
}

void addGet(CLI::App& app, Values& values)
{
    app.add_option("URL", values.address, "What to download")->required();
    addCommon(app, values);
}

void addPut(CLI::App& app, Values& values)
{
    app.add_option("FILE", values.file, "What to upload")->required();
    app.add_option("URL", values.address, "Where to")->required();
    app.add_option("--method", values.method, "PUT, POST or PATCH (default: PUT)")
        ->type_name("METHOD")
        ->check(CLI::IsMember({"PUT", "POST", "PATCH"}).description(""));
    app.add_flag("--delete-after", values.deleteAfter,
                 "Remove the file when the server has accepted it and was sent all of it");
    addCommon(app, values);
}

/// Its value may be a credential, so that no error repeats it.
void addHeader(platform::URLRequest& request, const std::string& line)
{
    constexpr auto blanks = " \t";
    const auto colon = line.find(':');
    if (colon == std::string::npos || colon == 0)
        refuse("--header takes a name, a colon and a value.",
               "Write it like --header \"Accept: text/plain\".");
    const auto begin = line.find_first_not_of(blanks, colon + 1);
    const auto end = line.find_last_not_of(blanks);
    const auto value =
        begin == std::string::npos ? "" : std::string_view(line).substr(begin, end + 1 - begin);
    request.addHeader(line.substr(0, colon), platform::SecretString(value));
}

std::size_t sizeFrom(const std::string& text)
{
    std::size_t size = 0;
    const auto* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, size);
    const std::string_view unit(rest, end);
    const auto place = std::string_view("KMG").find(unit);
    const unsigned shift =
        unit.empty() || place == std::string_view::npos ? 0 : 10 * (unsigned(place) + 1);
    const bool fits = unit.empty() || (unit.size() == 1 && place != std::string_view::npos);
    // What a signed count can hold, as the transfer's progress has it.
    constexpr auto most = std::size_t{1} << 62;
    if (error != std::errc() || !fits || size == 0 || size > (most >> shift))
        refuse("--body-limit takes a number of bytes above 0.",
               "Write it like 500000, 800K, 64M or 2G.");
    return size << shift;
}

platform::URL addressFrom(const std::string& text)
{
    auto url = platform::URL::parse(text);
    if (!url || (url->scheme() != "https" && url->scheme() != "http"))
        refuse("The address cannot be used.", "Give one like \"https://example.net/file\".");
    return *std::move(url);
}

Command commandFrom(const Values& values, Verb verb)
{
    Command command{.verb = verb, .request = {.url = addressFrom(values.address)}};
    if (verb == Verb::put)
        command.request.method = values.method;
    for (const auto& line : values.headers)
        addHeader(command.request, line);
    command.request.timeout =
        std::chrono::milliseconds(static_cast<std::int64_t>(values.timeLimit * 1000));
    command.file = values.file;
    command.deleteAfter = values.deleteAfter;
    command.output = values.output == "-" ? "" : values.output;
    command.authority = values.authority;
    if (!values.bodyLimit.empty())
        command.bodyLimit = sizeFrom(values.bodyLimit);
    command.retries = values.retries;
    command.baseDelay = values.baseDelay;
    command.json = values.json;
    command.quiet = values.quiet;
    return command;
}

}  // namespace

std::variant<Command, std::string> parseOptions(int count, const char* const* arguments)
{
    CLI::App app(purpose, programName);
    app.footer(epilogue);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string(programName) + " " + TESSERA_VERSION,
                         "Show the version and end");
    Values values;
    auto* get = app.add_subcommand("get", "Download what is at an address");
    auto* put = app.add_subcommand("put", "Upload a file to an address");
    addGet(*get, values);
    addPut(*put, values);
    for (auto* verb : {get, put})
        verb->footer("\nSee \"tessera-fetch --help\" for the exit codes and examples.");

    if (auto text = commandline::parse(app, count, arguments))
        return *std::move(text);
    return commandFrom(values, put->parsed() ? Verb::put : Verb::get);
}

}  // namespace fetch
