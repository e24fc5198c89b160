// The headers of an answer, cut into lines as libcurl cuts them, read as a simple model reads them;
// those of a request are refused, or are lines without a control character, each one header.

#include "Platform/Networking/HeaderLines.hpp"
#include "Platform/Networking/URLError.hpp"
#include "Platform/Networking/URLResponse.hpp"
#include "tests/fuzz/Require.hpp"

#include <fuzzer/FuzzedDataProvider.h>
#include <algorithm>
#include <cctype>
#include <cstring>

using namespace platform;

namespace
{

// What only libcurl may say.
constexpr const char* framing[] = {"connection", "Content-Length", "expect",  "host",
                                   "TE",         "trailer",        "upgrade", "transfer-encoding"};

using Fields = std::vector<std::pair<std::string, std::string>>;

bool isSame(std::string_view left, std::string_view right)
{
    const auto fold = [](unsigned char c) { return std::tolower(c); };
    return std::ranges::equal(left, right, {}, fold, fold);
}

std::string trimmed(std::string text, const char* blanks)
{
    text.erase(text.find_last_not_of(blanks) + 1);
    text.erase(0, std::min(text.find_first_not_of(blanks), text.size()));
    return text;
}

Fields fieldsOf(const HTTPFields& headers)
{
    const auto all = headers.all();
    return {all.begin(), all.end()};
}

/// The lines of a head up to the empty one.
std::vector<std::string> linesOf(std::string_view head)
{
    std::vector<std::string> lines;
    while (!head.empty() && head.front() != '\r' && head.front() != '\n')
    {
        const auto length = std::min(head.find('\n'), head.size() - 1) + 1;
        lines.emplace_back(head.substr(0, length));
        head.remove_prefix(length);
    }
    return lines;
}

Fields modelOf(const std::vector<std::string>& lines)
{
    constexpr const char* blanks = " \t\r\n";
    std::vector<std::string> whole;
    for (const std::string& line : lines)
    {
        const bool continues = line.starts_with(' ') || line.starts_with('\t');
        if (continues && !whole.empty())
            whole.back() = whole.back().substr(0, whole.back().find_last_not_of(blanks) + 1) + " " +
                           trimmed(line, blanks);
        else
            whole.push_back(continues ? trimmed(line, blanks) : line);
    }
    Fields fields;
    for (const std::string& line : whole)
    {
        const auto colon = trimmed(line, blanks).empty() ? line.npos : line.find(':');
        if (colon != line.npos && colon > 0)
            fields.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1), blanks));
    }
    return fields;
}

void tryAnswer(std::string_view head)
{
    HTTPFields headers;
    const auto lines = linesOf(head);
    for (const std::string& line : lines)
        headers.addLine(line);

    const Fields fields = fieldsOf(headers);
    require(fields == modelOf(lines));
    HTTPFields again;
    for (const auto& [name, value] : fields)
    {
        const auto first = std::ranges::find_if(
            fields, [&](const auto& field) { return isSame(field.first, name); });
        require(headers.value(name) == first->second);
        again.add(name, value);
    }
    require(fieldsOf(again) == fields);
}

bool isAllowed(const HTTPHeader& header)
{
    for (const char* own : framing)
        if (isSame(header.name, own))
            return false;
    const auto isNamed = [](unsigned char c)
    { return c > 0x20 && c < 0x7F && !std::strchr("()<>@,;:\\\"/[]?={}", c); };
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    return !header.name.empty() && std::ranges::all_of(header.name, isNamed) &&
           std::ranges::none_of(header.value.view(), isControl);
}

std::string lineOf(const HTTPHeader& header)
{
    const std::string value = trimmed(std::string(header.value.view()), " ");
    return header.name + (value.empty() ? ";" : ": " + value);
}

std::string anyName(FuzzedDataProvider& input)
{
    static const char* const names[] = {"Accept", "content-type", "Authorization", "X-A"};
    switch (input.ConsumeIntegralInRange(0, 3))
    {
        case 0:
            return input.PickValueInArray(framing);
        case 1:
            return input.ConsumeRandomLengthString();
        default:
            return input.PickValueInArray(names);
    }
}

void tryRequest(FuzzedDataProvider& input)
{
    URLRequest request{.url = *URL::parse("https://api.example.net/")};
    request.method = input.ConsumeBool() ? "GET" : "POST";
    const bool hasBody = input.ConsumeBool();
    for (auto count = input.ConsumeIntegralInRange(0, 8); count > 0; --count)
    {
        const std::string name = anyName(input);
        const std::string value = input.ConsumeRandomLengthString();
        if (input.ConsumeBool())
        {
            request.setHeader(name, value);
            require(request.header(name)->value.view() == value);
        }
        else
            request.addHeader(name, SecretString(value));
    }

    HeaderLines lines;
    const bool isGood = std::ranges::all_of(request.headers, isAllowed);
    try
    {
        const curl_slist* line = lines.build(request, hasBody);
        require(isGood);
        for (const HTTPHeader& header : request.headers)
        {
            require(line && line->data == lineOf(header));
            line = line->next;
        }
        for (; line; line = line->next)
        {
            const std::string_view removed(line->data);
            require(removed == "Accept:" || removed == "Content-Type:" || removed == "Expect:");
            require(!request.header(removed.substr(0, removed.size() - 1)));
        }
    }
    catch (const URLError& error)
    {
        require(!isGood && error.code() == URLError::Code::invalidHeader);
        require(std::ranges::all_of(error.errorDescription(),
                                    [](unsigned char c) { return c >= 0x20 && c != 0x7F; }));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    if (data[0] % 2 == 0)
    {
        tryAnswer({reinterpret_cast<const char*>(data + 1), size - 1});
        return 0;
    }
    FuzzedDataProvider input(data + 1, size - 1);
    tryRequest(input);
    return 0;
}
