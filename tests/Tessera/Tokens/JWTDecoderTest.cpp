#include "Tessera/Tokens/JWTDecoder.hpp"

#include "Platform/Coding/DecodingError.hpp"
#include "Tessera/Model/AccountToken.hpp"
#include "tests/support/TokenFactory.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using namespace tessera;
using platform::DecodingError;

namespace
{

constexpr std::string_view payload = R"({"user":"u-1","session":"s-1"})";
const auto malformed = JWTError(JWTError::malformedToken);
const auto refused = JWTError(JWTError::verificationFailed);

const TokenFactory& factory()
{
    static const TokenFactory made;
    return made;
}

/// The name of the error that decoding ends with, "decoded" when there is none.
std::string outcome(JWTDecoder& decoder, std::string_view token)
{
    try
    {
        decoder.decode<AccountToken>(bytesOf(token));
        return "decoded";
    }
    catch (const platform::LocalizedError& error)
    {
        return error.what();
    }
}

JWTDecoder& verifying(JWTDecoder& decoder, JWTPublicKey key)
{
    decoder.setSignatureVerificationStrategy(std::move(key));
    return decoder;
}

}  // namespace

TEST(JWTDecoder, ATokenComesBackWithAllItsParts)
{
    using enum JWTPublicKeyAlgorithm;
    for (const auto algorithm : {RS256, RS384, RS512})
    {
        const TokenFactory server(algorithm);
        const auto text = server.token(payload);
        JWTDecoder decoder;

        const auto token =
            verifying(decoder, server.publicKey()).decode<AccountToken>(bytesOf(text));

        EXPECT_EQ(token.header.alg, platform::rawValue(algorithm));
        EXPECT_EQ(token.header.typ, "JWT");
        EXPECT_EQ(token.payload, (AccountToken{"u-1", std::nullopt, "s-1"}));
        EXPECT_EQ(token.signature.size(), 256u);
        EXPECT_EQ(token.string.view(), text);
    }
}

TEST(JWTDecoder, TheFormIsCheckedBeforeAnyJSONIsRead)
{
    const std::string header = R"({"alg":"RS256"})";
    const std::string good = unsignedToken(header, payload);
    const struct
    {
        std::string token;
        std::string withoutKey;
        std::string withKey;
    } cases[] = {
        {"", malformed.what(), malformed.what()},
        {"..", "DecodingError.dataCorrupted", "DecodingError.dataCorrupted"},
        {good, malformed.what(), malformed.what()},
        {good + ".", "decoded", refused.what()},
        {good + "..", malformed.what(), malformed.what()},
        {good + ".AAAAA", malformed.what(), malformed.what()},
        {good + ".AAA=", "decoded", refused.what()},
        {good + ".AAAA==", malformed.what(), malformed.what()},
        {good + ".AA\nA", malformed.what(), malformed.what()},
        {good + ".+/-_", "decoded", refused.what()},
        {good + ".\xFF\xFF\xFF\xFF", malformed.what(), malformed.what()},
        {"!!!!." + good, malformed.what(), malformed.what()},
        {unsignedToken("no json", payload) + ".A", malformed.what(), malformed.what()},
    };
    for (const auto& [token, withoutKey, withKey] : cases)
    {
        JWTDecoder decoder;
        EXPECT_EQ(outcome(decoder, token), withoutKey) << token;
        EXPECT_EQ(outcome(verifying(decoder, factory().publicKey()), token), withKey) << token;
    }
}

TEST(JWTDecoder, OnlyTheAlgorithmOfTheKeyIsAccepted)
{
    for (const std::string name : {"RS512", "RS384", "rs256", "HS256", "none", "", "RS256 "})
    {
        JWTDecoder decoder;
        const auto token = factory().token("{\"alg\":\"" + name + "\"}", payload);
        EXPECT_EQ(outcome(decoder, token), "decoded") << name;
        EXPECT_EQ(outcome(verifying(decoder, factory().publicKey()), token), refused.what())
            << name;
    }
}

TEST(JWTDecoder, FaultsInTheJSONComeThroughUnchangedAndInOrder)
{
    JWTDecoder decoder;
    const auto error = [&](const std::string& token) -> std::optional<DecodingError>
    {
        try
        {
            decoder.decode<AccountToken>(bytesOf(token));
        }
        catch (const DecodingError& thrown)
        {
            return thrown;
        }
        return std::nullopt;
    };
    const auto noAlgorithm = DecodingError(DecodingError::Kind::keyNotFound, {}, "alg");
    const auto noSession = DecodingError(DecodingError::Kind::keyNotFound, {}, "session");

    EXPECT_EQ(error(unsignedToken(R"({"typ":"JWT"})", payload) + "."), noAlgorithm);
    EXPECT_EQ(error(unsignedToken(R"({"alg":"x","crit":[1]})", payload) + "."),
              DecodingError(DecodingError::Kind::typeMismatch, {"crit", "Index 0"}));
    EXPECT_EQ(error(unsignedToken(R"({"alg":"x"})", R"({"user":"u"})") + "."), noSession);

    verifying(decoder, factory().publicKey());
    EXPECT_EQ(error(unsignedToken(R"({"typ":"JWT"})", payload) + "."), noAlgorithm);
    // What nobody signed is not even looked at.
    EXPECT_EQ(outcome(decoder, unsignedToken(R"({"alg":"RS256"})", "no json") + "."),
              refused.what());
    EXPECT_EQ(error(factory().token(R"({"user":"u"})")), noSession);
}

TEST(JWTDecoder, ADamagedTokenOrAnotherKeyIsRefusedAndTheDecoderGoesOn)
{
    JWTDecoder decoder;
    verifying(decoder, factory().publicKey());
    const auto good = factory().token(payload);
    auto otherPayload = good;
    otherPayload[good.find('.') + 5] ^= 1;

    EXPECT_NE(outcome(decoder, otherPayload), "decoded");
    EXPECT_EQ(outcome(decoder, TokenFactory().token(payload)), refused.what());
    EXPECT_EQ(outcome(decoder, good), "decoded");
}

TEST(JWTDecoder, KeysAreReadAsPEMWithNothingButTheMarkersAndLineFeedsRemoved)
{
    const auto good = factory().token(payload);
    const auto pem = factory().publicKey().value;
    ASSERT_EQ(pem.size(), 425u);
    auto unbroken = pem;
    std::erase(unbroken, '\n');
    auto carriageReturns = pem;
    carriageReturns.insert(pem.find('\n'), "\r");
    const std::vector<std::pair<std::string, std::string>> cases{
        {pem, "decoded"},
        {pem + "\n\n", "decoded"},
        {unbroken, "decoded"},
        {"", refused.what()},
        {"-----BEGIN PUBLIC KEY-----\n" + pem.substr(31), refused.what()},
        {carriageReturns, refused.what()},
        {pem.substr(0, pem.size() - 40), refused.what()},
    };
    for (const auto& [value, expected] : cases)
    {
        JWTDecoder decoder;
        verifying(decoder, {JWTPublicKeyAlgorithm::RS256, value});
        EXPECT_EQ(outcome(decoder, good), expected) << value;
        EXPECT_EQ(outcome(decoder, good), expected) << "the second answer must be the first";
    }
}

TEST(JWTDecoder, SettingTheStrategyForgetsTheKeyBefore)
{
    const TokenFactory other;
    JWTDecoder decoder;
    EXPECT_EQ(outcome(verifying(decoder, other.publicKey()), other.token(payload)), "decoded");
    EXPECT_EQ(outcome(verifying(decoder, factory().publicKey()), factory().token(payload)),
              "decoded");
    EXPECT_EQ(outcome(decoder, other.token(payload)), refused.what());

    decoder.setSignatureVerificationStrategy(JWTVerifyNone());
    EXPECT_EQ(outcome(decoder, other.token(payload)), "decoded");
}

TEST(JWTDecoder, AnOverrideOfTheGeneralFormIsHonouredByTheConvenience)
{
    struct Recording : JWTDecoder
    {
        void decodeParts(std::span<const std::byte> token, JWTParts& parts) override
        {
            ++calls;
            JWTDecoder::decodeParts(token, parts);
        }
        int calls = 0;
    };
    Recording decoder;
    JWTDecoder& seenAsBase = decoder;

    seenAsBase.decode<AccountToken>(bytesOf(factory().token(payload)));
    seenAsBase.decode<JWTHeader, AccountToken>(bytesOf(factory().token(payload)));

    EXPECT_EQ(decoder.calls, 2);
}

TEST(JWT, EqualityAndHashFollowTheTextAlone)
{
    JWTDecoder decoder;
    const auto text = factory().token(payload);
    auto left = decoder.decode<AccountToken>(bytesOf(text));
    const auto right = left;
    left.payload.user = "another";
    left.header.alg = "another";

    EXPECT_EQ(left, right);
    EXPECT_EQ(hash_value(left), hash_value(right));
    const auto other = TokenFactory().token(payload);
    EXPECT_NE(left, decoder.decode<AccountToken>(bytesOf(other)));
}
