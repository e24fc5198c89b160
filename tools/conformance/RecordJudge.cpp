#include "CodingExtras/CustomPropertiesContainer.hpp"
#include "CodingExtras/DecodableValue.hpp"
#include "NetTasks/HTTPMethod.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/Model/AccountInfo.hpp"
#include "Tessera/Model/AccountToken.hpp"
#include "Tessera/Tokens/JWTHeader.hpp"
#include "Tessera/Tokens/JWTPublicKey.hpp"
#include "tools/conformance/Judge.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value_from.hpp>

#include <cmath>
#include <map>
#include <stdexcept>

namespace conformance
{
namespace
{

namespace json = boost::json;
using json::object;

template <class T>
json::value optional(const std::optional<T>& value)
{
    return value ? json::value_from(*value) : json::value();
}

json::value optional(const std::optional<boost::uuids::uuid>& uuid)
{
    return uuid ? json::parse(platform::JSONEncoder().encode(*uuid)) : json::value();
}

/// The records as the data file writes them.
json::value fields(const tessera::AccountToken& token)
{
    return {{"user", token.user}, {"uuid", optional(token.uuid)}, {"session", token.session}};
}

json::value fields(const tessera::AccountInfo& info)
{
    return {{"issuedAt", info.issuedAt.secondsSince1970},
            {"audience", info.audience},
            {"user", info.user},
            {"uuid", optional(info.uuid)},
            {"email", info.email ? json::value(info.email->view()) : json::value()},
            {"acceptedRevision", info.terms.acceptedRevision},
            {"currentRevision", info.terms.currentRevision}};
}

json::value fields(const tessera::JWTHeader& header)
{
    return {{"alg", header.alg},           {"typ", optional(header.typ)},
            {"jku", optional(header.jku)}, {"jwk", optional(header.jwk)},
            {"kid", optional(header.kid)}, {"x5u", optional(header.x5u)},
            {"x5c", optional(header.x5c)}, {"x5t", optional(header.x5t)},
            {"cty", optional(header.cty)}, {"crit", optional(header.crit)}};
}

json::value fields(const tessera::JWTPublicKey& key)
{
    return {{"algorithm", platform::rawValue(key.algorithm)}, {"value", key.value}};
}

json::value fields(nettasks::HTTPMethod method)
{
    return {{"method", platform::rawValue(method)}};
}

json::value fields(const tessera::AccountRemoteError& error)
{
    json::value code;
    if (const auto& known = error.code())
    {
        if (const auto* other = std::get_if<tessera::AccountRemoteError::OtherCode>(&*known))
            code = {{"other", other->text}};
        else
            code = platform::rawValue(std::get<tessera::AccountRemoteError::KnownCode>(*known));
    }
    return {{"code", code}, {"message", error.message()}};
}

/// Free-form integers are texts, because JSON of other makers would round them.
json::value fields(const codingextras::DecodableValue& value)
{
    return {{"intValue", value.intValue ? json::value(std::to_string(*value.intValue)) : nullptr},
            {"stringValue", optional(value.stringValue)}};
}

json::value fields(const codingextras::CustomPropertiesContainer& container)
{
    object all;
    for (const auto& [key, held] : container.properties())
    {
        if (const auto* text = std::any_cast<std::string>(&held))
            all[key] = {{"text", *text}};
        else if (const auto* integer = std::any_cast<std::int64_t>(&held))
            all[key] = {{"integer", std::to_string(*integer)}};
        else
            all[key] = {{"boolean", std::any_cast<bool>(held)}};
    }
    return all;
}

template <class Record>
json::value decodedAs(std::string_view text)
{
    return fields(platform::JSONDecoder().decode<Record>(text));
}

using Decode = json::value (*)(std::string_view);

Decode decoderOf(std::string_view type)
{
    static const std::map<std::string_view, Decode> decoders{
        {"AccountToken", decodedAs<tessera::AccountToken>},
        {"AccountInfo", decodedAs<tessera::AccountInfo>},
        {"AccountRemoteError", decodedAs<tessera::AccountRemoteError>},
        {"CustomPropertiesContainer", decodedAs<codingextras::CustomPropertiesContainer>},
        {"DecodableValue", decodedAs<codingextras::DecodableValue>},
        {"HTTPMethod", decodedAs<nettasks::HTTPMethod>},
        {"JWTHeader", decodedAs<tessera::JWTHeader>},
        {"JWTPublicKey", decodedAs<tessera::JWTPublicKey>}};
    const auto found = decoders.find(type);
    if (found == decoders.end())
        throw std::invalid_argument("there is no code for this type of record");
    return found->second;
}

/// Numbers are dates here, and agree within a microsecond.
bool agree(const json::value& expected, const json::value& found)
{
    if (expected.is_number() && found.is_number())
    {
        const auto left = expected.to_number<double>(), right = found.to_number<double>();
        return left == right || std::abs(left - right) <= 1e-6;
    }
    if (!expected.is_object() || !found.is_object() ||
        expected.get_object().size() != found.get_object().size())
        return expected == found;
    for (const auto& [key, value] : expected.get_object())
    {
        const json::value* other = found.get_object().if_contains(key);
        if (other == nullptr || !agree(value, *other))
            return false;
    }
    return true;
}

std::string kindOf(const platform::DecodingError& error)
{
    const std::string_view name = error.what();
    return std::string(name.substr(name.find('.') + 1));
}

/// The kind of an error, its path and, where one is missing, the key.
json::value expectedError(const object& record)
{
    object error{{"error", record.at("error")}, {"path", record.at("path")}};
    if (const auto* key = record.if_contains("key"))
        error["key"] = *key;
    return error;
}

json::value foundError(const platform::DecodingError& error)
{
    object found{{"error", kindOf(error)}, {"path", json::value_from(error.codingPath())}};
    if (error.kind() == platform::DecodingError::Kind::keyNotFound)
        found["key"] = error.key();
    return found;
}

Verdict judgeRecord(const object& record, const object&)
{
    const Decode decode = decoderOf(textOf(record, "type"));
    const json::value* ok = record.if_contains("ok");
    const json::value expected = ok != nullptr ? *ok : expectedError(record);
    const auto compared = [&](const json::value& found, bool agrees)
    { return Verdict::passedIf(agrees, json::serialize(expected), json::serialize(found)); };
    try
    {
        const json::value found = decode(bytesFromBase64(textOf(record, "json")));
        return compared(found, ok != nullptr && agree(expected, found));
    }
    catch (const platform::DecodingError& error)
    {
        // A text that is no JSON may be refused as such.
        const bool refused = error.kind() == platform::DecodingError::Kind::dataCorrupted &&
                             !record.at("strict").as_bool();
        const json::value found = foundError(error);
        return compared(found, refused || (ok == nullptr && expected == found));
    }
}

std::string name(const object& record)
{
    return std::string(textOf(record, "type")) + " " + shown(textOf(record, "why"));
}

constexpr Judge judges[] = {{"json.json", name, judgeRecord}};

}  // namespace

std::span<const Judge> recordJudges()
{
    return judges;
}

}  // namespace conformance
