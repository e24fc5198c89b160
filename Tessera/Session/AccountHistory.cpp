#include "Tessera/Session/AccountHistory.hpp"

#include "Tessera/Session/HistoryFile.hpp"

#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"

#include <boost/describe/class.hpp>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

namespace tessera
{
namespace
{

/// As it stands in the file. A later version may have more states, more causes, and more members.
struct Line
{
    platform::Date time;
    std::string state;
    std::string cause;
};
BOOST_DESCRIBE_STRUCT(Line, (), (time, state, cause))

/// Longer ones are none of ours, and 50 of these are in the part of the file that is read.
constexpr std::size_t longestLine = 1024;
static_assert(AccountHistory::limit * longestLine < HistoryFile::tailSize);

std::optional<Line> parsed(std::string_view text)
{
    // Most damage is told without an error being thrown.
    if (text.size() > longestLine || !text.starts_with('{') || !text.ends_with('}'))
        return std::nullopt;
    try
    {
        return platform::JSONDecoder().decode<Line>(text);
    }
    catch (const platform::DecodingError&)
    {
        return std::nullopt;
    }
}

std::optional<AccountTransition> transition(const Line& line)
{
    const auto state = platform::fromRawValue<AccountStateKind>(line.state);
    const auto cause = platform::fromRawValue<AccountTransitionCause>(line.cause);
    if (!state || !cause)
        return std::nullopt;
    return AccountTransition{line.time, *state, *cause};
}

/// Takes the last line, without its end, from `lines`, all of which have one.
std::string_view takeLast(std::string_view& lines)
{
    lines.remove_suffix(1);
    const auto start = lines.rfind('\n') + 1;
    const auto last = lines.substr(start);
    lines = lines.substr(0, start);
    return last;
}

/// The last lines that are not damaged. Those of a later version stay for it.
std::string shortened(std::string_view lines)
{
    std::vector<std::string_view> kept;
    while (!lines.empty() && kept.size() < AccountHistory::limit)
    {
        const auto last = takeLast(lines);
        if (parsed(last))
            kept.push_back(last);
    }
    std::string text;
    for (auto line = kept.rbegin(); line != kept.rend(); ++line)
        text.append(*line).push_back('\n');
    return text;
}

std::vector<AccountTransition> lastTransitions(std::string_view lines)
{
    std::vector<AccountTransition> found;
    while (!lines.empty() && found.size() < AccountHistory::limit)
    {
        const auto line = parsed(takeLast(lines));
        if (const auto known = line ? transition(*line) : std::nullopt)
            found.push_back(*known);
    }
    std::ranges::reverse(found);
    return found;
}

/// A name of letters, digits, "-", "_" and dots inside it; every other byte as "%2F".
std::string escaped(std::string_view client)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string name;
    for (const char letter : client)
    {
        const auto byte = static_cast<unsigned char>(letter);
        if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
            (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' ||
            (byte == '.' && !name.empty()))
            name += letter;
        else
            name.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return name.empty() ? "%" : name;
}

/// No longer than file systems allow. FNV-1a tells those apart that begin alike.
std::string fileName(std::string_view client)
{
    auto name = escaped(client);
    constexpr std::size_t longest = 200;
    if (name.size() > longest)
    {
        std::uint64_t hash = 0xcbf29ce484222325;
        for (const char letter : name)
            hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001b3;
        name.resize(longest);
        name += '%' + std::to_string(hash);
    }
    return name + ".history";
}

/// Runs `work`; what it throws is told and goes no further.
template <class Work>
void guarded(const platform::DiagnosticSink& diagnostics, Work work) noexcept
try
{
    try
    {
        work();
    }
    catch (const platform::Diagnostic& diagnostic)
    {
        if (diagnostics)
            diagnostics(diagnostic);
    }
}
catch (...)
{
    // There is no memory, or the time is no number: nothing that a user could mend.
}

}  // namespace

AccountHistory::AccountHistory(std::filesystem::path folder, std::string_view client,
                               platform::DiagnosticSink diagnostics)
    // With a slash at its end, the system would follow a link.
    : folder_(folder.has_filename() ? std::move(folder) : folder.parent_path()),
      name_(fileName(client)),
      diagnostics_(std::move(diagnostics))
{}

void AccountHistory::append(const AccountTransition& transition) const noexcept
{
    if (folder_.empty())
        return;
    guarded(diagnostics_,
            [&]
            {
                const Line line{transition.time, std::string(platform::rawValue(transition.state)),
                                std::string(platform::rawValue(transition.cause))};
                HistoryFile(folder_, name_)
                    .append(platform::JSONEncoder().encode(line) + '\n', 2 * limit, shortened);
            });
}

std::vector<AccountTransition> AccountHistory::read() const noexcept
{
    std::vector<AccountTransition> found;
    if (!folder_.empty())
        guarded(diagnostics_, [&] { found = lastTransitions(HistoryFile(folder_, name_).tail()); });
    return found;
}

}  // namespace tessera
