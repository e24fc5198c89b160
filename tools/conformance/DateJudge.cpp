#include "NetTasks/ResponseCheck.hpp"
#include "tools/conformance/Judge.hpp"

#include <boost/describe/class.hpp>
#include <boost/json/serialize.hpp>

#include <cmath>

namespace conformance
{
namespace
{

using boost::json::object;

struct Moment
{
    platform::Date at;
};
BOOST_DESCRIBE_STRUCT(Moment, (), (at))

std::string expectation(const object& record)
{
    if (const auto* moment = record.if_contains("milliseconds"))
        return boost::json::serialize(*moment) + " ms";
    return "dataCorrupted at \"at\"";
}

Verdict judgeDate(const object& record, const object&)
{
    const std::string text = boost::json::serialize(object{{"at", textOf(record, "text")}});
    const auto* expected = record.if_contains("milliseconds");
    try
    {
        const auto moment =
            nettasks::sharedResponseDecoder().decode<Moment>(std::string_view(text));
        const double found = moment.at.secondsSince1970 * 1000;
        const bool agrees =
            expected != nullptr && std::abs(found - expected->to_number<double>()) < 1;
        return Verdict::passedIf(agrees, expectation(record), std::to_string(found) + " ms");
    }
    catch (const platform::DecodingError& error)
    {
        const platform::DecodingError refusal(platform::DecodingError::Kind::dataCorrupted, {"at"});
        const bool mayBeRefused = expected == nullptr || !record.at("canonical").as_bool();
        return Verdict::passedIf(mayBeRefused && error == refusal, expectation(record),
                                 error.errorDescription());
    }
}

constexpr Judge judges[] = {{"dates.json", nameFromText, judgeDate}};

}  // namespace

std::span<const Judge> dateJudges()
{
    return judges;
}

}  // namespace conformance
