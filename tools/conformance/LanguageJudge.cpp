#include "Tessera/API/AccountRequestBuilder.hpp"
#include "tools/conformance/Judge.hpp"

#include <boost/json/serialize.hpp>
#include <boost/json/value_to.hpp>

namespace conformance
{
namespace
{

using boost::json::object;

Verdict judgeLanguages(const object& record, const object&)
{
    const auto languages = boost::json::value_to<std::vector<std::string>>(record.at("languages"));
    const std::string found = tessera::acceptLanguage(languages);
    const auto expected = textOf(record, "header");
    return Verdict::passedIf(found == expected, shown(expected), shown(found));
}

std::string name(const object& record)
{
    return boost::json::serialize(record.at("languages"));
}

constexpr Judge judges[] = {{"languages.json", name, judgeLanguages}};

}  // namespace

std::span<const Judge> languageJudges()
{
    return judges;
}

}  // namespace conformance
