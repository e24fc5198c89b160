#include "tools/conformance/AnyJSON.hpp"
#include "tools/conformance/Judge.hpp"

namespace conformance
{
namespace
{

using boost::json::object;

std::string name(const object& record)
{
    return std::string(textOf(record, "name"));
}

std::string input(const object& record)
{
    if (record.contains("bytesBase64"))
        return bytesFromBase64(textOf(record, "bytesBase64"));
    const std::string part = bytesFromBase64(textOf(record, "repeatBase64"));
    std::string text;
    for (auto count = record.at("count").to_number<std::size_t>(); count > 0; --count)
        text += part;
    return text + bytesFromBase64(textOf(record, "tailBase64"));
}

Verdict judgeText(const object& record, const object&)
{
    const auto expect = textOf(record, "expect");
    std::string found = "accepted";
    try
    {
        platform::JSONDecoder().decode<AnyValue>(std::string_view(input(record)));
    }
    catch (const platform::DecodingError& error)
    {
        found = std::string("refused: ") + error.what();
    }
    // "i" leaves it to the decoder, which must come to an end all the same.
    const bool agrees = expect == "i" || (expect == "y") == (found == "accepted");
    return Verdict::passedIf(agrees, expect == "y" ? "accepted" : "refused", found);
}

constexpr Judge judges[] = {{"jsontestsuite.json", name, judgeText}};

}  // namespace

std::span<const Judge> suiteJudges()
{
    return judges;
}

}  // namespace conformance
