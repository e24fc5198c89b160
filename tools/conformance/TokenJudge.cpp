#include "Tessera/Tokens/JWTDecoder.hpp"
#include "tools/conformance/AnyJSON.hpp"
#include "tools/conformance/Judge.hpp"

#include <stdexcept>

namespace conformance
{
namespace
{

/// Whether the header of the last token was decoded: what tells a fault in the JSON of a header
/// from one in that of a payload.
bool headerWasRead = false;

/// The product's own header.
struct TracedHeader : tessera::JWTHeader
{};

}  // namespace
}  // namespace conformance

template <>
struct platform::JSONCoding<conformance::TracedHeader>
{
    static conformance::TracedHeader decode(const JSONReader& json)
    {
        conformance::TracedHeader header{json.decode<tessera::JWTHeader>()};
        conformance::headerWasRead = true;
        return header;
    }
};

namespace conformance
{
namespace
{

using boost::json::object;

/// What became of the token, in the words of the data file. A payload that is no JSON object shows
/// only after the signature was confirmed, and is no other outcome.
std::string_view outcome(std::string_view token, tessera::JWTSignatureVerificationStrategy strategy)
{
    const bool underKey = std::holds_alternative<tessera::JWTPublicKey>(strategy);
    tessera::JWTDecoder decoder;
    decoder.setSignatureVerificationStrategy(std::move(strategy));
    headerWasRead = false;
    try
    {
        decoder.decode<TracedHeader, AnyObject>(asBytes(token));
    }
    catch (const tessera::JWTError& error)
    {
        return error.errorCase() == tessera::JWTError::malformedToken ? "malformedToken"
                                                                      : "verificationFailed";
    }
    catch (const platform::DecodingError&)
    {
        if (!headerWasRead)
            return "headerJsonError";
    }
    return underKey ? "verified" : "decoded";
}

tessera::JWTPublicKey keyNamed(std::string_view id, const object& meta)
{
    for (const auto& value : meta.at("keys").as_array())
    {
        const object& key = value.as_object();
        if (textOf(key, "id") != id)
            continue;
        const auto algorithm =
            platform::fromRawValue<tessera::JWTPublicKeyAlgorithm>(textOf(key, "algorithm"));
        return {algorithm.value(), std::string(textOf(key, "pem"))};
    }
    throw std::invalid_argument("the data file names a key that it does not hold");
}

Verdict judgeToken(const object& record, const object& meta)
{
    const auto token = textOf(record, "token");
    const auto underKey = outcome(token, keyNamed(textOf(record, "key"), meta));
    const auto expectedUnderKey = textOf(record, "underKey");
    if (underKey != expectedUnderKey)
        return Verdict::failed(std::string(expectedUnderKey) + " under the key", underKey);
    const auto underNone = outcome(token, tessera::JWTVerifyNone());
    const auto expectedUnderNone = textOf(record, "underNone");
    return Verdict::passedIf(underNone == expectedUnderNone,
                             std::string(expectedUnderNone) + " without a key", underNone);
}

constexpr Judge judges[] = {{"jws_compact.json", nameFromID, judgeToken}};

}  // namespace

std::span<const Judge> tokenJudges()
{
    return judges;
}

}  // namespace conformance
