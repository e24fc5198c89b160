#include "Platform/Networking/URLResponse.hpp"

#include "Platform/Networking/HeaderName.hpp"

#include <algorithm>

namespace platform
{
namespace
{

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view blanks = " \t\r\n";

std::string_view trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

void HTTPFields::add(std::string_view name, std::string_view value)
{
    lines_.append(name);
    lines_.append(":");
    lines_.append(value);
    lines_.append(lineEnd);
}

void HTTPFields::addLine(std::string_view line)
{
    constexpr std::size_t usual = 1024;
    if (lines_.empty())
        lines_.reserve(usual);
    const bool continues = line.starts_with(' ') || line.starts_with('\t');
    if (continues && !lines_.empty())
    {
        const SecretString before(std::exchange(lines_, {}));
        lines_.append(before.view().substr(0, before.view().find_last_not_of(blanks) + 1));
        lines_.append(" ");
    }
    lines_.append(continues ? trimmed(line) : line);
    if (continues)
        lines_.append(lineEnd);
}

std::optional<std::string_view> HTTPFields::value(std::string_view name) const
{
    for (const auto& [fieldName, fieldValue] : all())
        if (sameName(fieldName, name))
            return fieldValue;
    return std::nullopt;
}

std::vector<HTTPFields::Field> HTTPFields::all() const
{
    std::vector<Field> fields;
    std::string_view rest = lines_.view();
    while (!rest.empty())
    {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const auto colon = line.find(':');
        if (colon != std::string_view::npos && colon > 0)
            fields.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1)));
    }
    return fields;
}

}  // namespace platform
