#include "tools/conformance/Judge.hpp"

namespace conformance
{

std::string_view textOf(const boost::json::object& record, std::string_view key)
{
    return record.at(key).as_string();
}

std::string bytesOf(const boost::json::array& numbers)
{
    std::string bytes;
    for (const auto& number : numbers)
        bytes.push_back(static_cast<char>(number.to_number<unsigned char>()));
    return bytes;
}

std::string nameFromID(const boost::json::object& record)
{
    return std::string(textOf(record, "id"));
}

std::string nameFromText(const boost::json::object& record)
{
    return shown(textOf(record, "text"));
}

std::vector<Judge> allJudges()
{
    std::vector<Judge> all;
    for (const auto judges : {signatureJudges(), tokenJudges(), suiteJudges(), recordJudges(),
                              codingJudges(), textJudges(), dateJudges(), addressJudges(),
                              languageJudges(), extrasJudges(), faultJudges(), tlsJudges()})
        all.insert(all.end(), judges.begin(), judges.end());
    return all;
}

}  // namespace conformance
