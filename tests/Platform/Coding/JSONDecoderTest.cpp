#include "Platform/Coding/JSONDecoder.hpp"

#include <limits>

#include <gmock/gmock.h>

#include "tests/Platform/Coding/Records.hpp"

namespace
{

using platform::DecodingError;
using platform::JSONDecoder;
using platform::JSONReader;
using records::Order;
using testing::ElementsAre;
using Kind = DecodingError::Kind;
using Path = std::vector<std::string>;

constexpr std::string_view wholeOrder =
    R"({"iat":1784073600.25,"aud":"editor.mac","uuid":"e621e1f8-C36C-495A-93FC-0C247A3E6E5F",)"
    R"("email":"a@b.c","tags":["x","y"],"terms":{"accepted_revision":"1","more":[{}]},"other":0})";

/// Runs `read` on the parsed text; the views that it returns must not be kept.
template <class Read>
auto reading(std::string_view json, Read read)
{
    const auto dates = platform::DateDecodingStrategy::secondsSince1970();
    const platform::detail::JSONDocument document(
        std::as_bytes(std::span(json)), platform::KeyDecodingStrategy::useDefaultKeys, dates);
    return read(JSONReader(document));
}

template <class T>
std::optional<DecodingError> errorOf(std::string_view json)
{
    try
    {
        (void)JSONDecoder().decode<T>(json);
        return std::nullopt;
    }
    catch (const DecodingError& error)
    {
        return error;
    }
}

TEST(JSONDecoder, ReadsARecordByItsStatedKeysAndIgnoresOthers)
{
    const auto order = JSONDecoder().decode<Order>(wholeOrder);

    EXPECT_EQ(order.issuedAt, platform::Date{1784073600.25});
    EXPECT_EQ(order.audience, "editor.mac");
    EXPECT_EQ(order.uuid->data[1], 0x21);
    EXPECT_EQ(order.email, "a@b.c");
    EXPECT_THAT(*order.tags, ElementsAre("x", "y"));
    EXPECT_EQ(order.terms.accepted, "1");
}

TEST(JSONDecoder, TakesNothingForOptionalMembersThatAreAbsentOrNull)
{
    const auto order = JSONDecoder().decode<Order>(
        std::string_view(R"({"iat":0,"aud":"","email":null,"terms":{"accepted_revision":""}})"));

    EXPECT_FALSE(order.uuid || order.email || order.tags);
}

TEST(JSONDecoder, TellsTheKindAndThePathOfEveryFault)
{
    const struct
    {
        std::string_view json;
        DecodingError expected;
    } cases[] = {
        {R"({"aud":"a","terms":{}})", {Kind::keyNotFound, {}, "iat"}},
        {R"({"iat":1,"aud":"a","terms":{}})", {Kind::keyNotFound, {"terms"}, "accepted_revision"}},
        {R"({"iat":"1","aud":"a"})", {Kind::typeMismatch, {"iat"}}},
        {R"({"x":{"iat":{}},"iat":1,"aud":"a","tags":["a",[],2]})",
         {Kind::typeMismatch, {"tags", "Index 1"}}},
        {R"({"iat":null,"aud":"a"})", {Kind::valueNotFound, {"iat"}}},
        {R"({"iat":1,"aud":"a","tags":["",null]})", {Kind::valueNotFound, {"tags", "Index 1"}}},
        {R"({"iat":1,"aud":"a","uuid":""})", {Kind::dataCorrupted, {"uuid"}}},
        {"[]", {Kind::typeMismatch, {}}},
        {"null", {Kind::valueNotFound, {}}},
        {"", {Kind::dataCorrupted, {}}},
        {R"({"iat":1,"aud":"a"} x)", {Kind::dataCorrupted, {}}},
        {"{\"iat\":1,\"aud\":\"\xFF\"}", {Kind::dataCorrupted, {}}},
        {R"({"iat":1,"aud":"\ud800"})", {Kind::dataCorrupted, {}}},
        {R"({"iat":1e400})", {Kind::dataCorrupted, {}}},
    };

    for (const auto& each : cases)
        EXPECT_EQ(errorOf<Order>(each.json), each.expected) << each.json;
}

TEST(JSONDecoder, ErrorsNameKeysAndNeverValues)
{
    const auto error =
        errorOf<Order>(R"({"iat":1,"aud":"a","terms":{"accepted_revision":["secret"]}})");

    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "DecodingError.typeMismatch");
    EXPECT_EQ(error->errorDescription(),
              "The value at terms > accepted_revision is of the wrong type.");
    EXPECT_EQ(errorOf<Order>("{}")->errorDescription(),
              "The key \"iat\" is missing at the top level.");
    EXPECT_NE(error, errorOf<Order>("[]"));
}

TEST(JSONDecoder, TakesANumberForAnIntegerIfItIsWholeAndFits)
{
    const struct
    {
        std::string_view json;
        std::optional<std::int64_t> expected;
    } cases[] = {
        {"1.0", 1},
        {"1e3", 1000},
        {"-0.0", 0},
        {"9007199254740993", 9007199254740993},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"-9223372036854775809", std::nullopt},
        {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        {"9223372036854775808", std::nullopt},
        {"1e19", std::nullopt},
        {"1.5", std::nullopt},
    };

    for (const auto& each : cases)
    {
        const auto read = [](JSONReader json) { return json.tryInteger(); };
        EXPECT_EQ(reading(each.json, read), each.expected) << each.json;
    }
    EXPECT_EQ(errorOf<std::int64_t>("1.5"), DecodingError(Kind::dataCorrupted, {}));
    EXPECT_EQ(errorOf<std::int16_t>("32768"), DecodingError(Kind::dataCorrupted, {}));
    EXPECT_EQ(errorOf<bool>("1"), DecodingError(Kind::typeMismatch, {}));
}

TEST(JSONDecoder, ReadsADoubleExactly)
{
    EXPECT_EQ(JSONDecoder().decode<double>("0.1"), 0.1);
    EXPECT_EQ(JSONDecoder().decode<double>("1606472644.3345807"), 1606472644.3345807);
    EXPECT_EQ(JSONDecoder().decode<double>("123456789012345678901234567890"),
              1.2345678901234568e29);
    EXPECT_EQ(JSONDecoder().decode<double>("18446744073709551615"), 18446744073709551615.0);
    EXPECT_EQ(JSONDecoder().decode<double>("4e-999"), 0);
}

TEST(JSONDecoder, AcceptsAUUIDInNoOtherFormThanTheHyphenatedOne)
{
    using boost::uuids::uuid;
    for (const std::string text :
         {"E621E1F8C36C495A93FC0C247A3E6E5F", "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",
          "E621E1F-8C36C-495A-93FC-0C247A3E6E5F", "G621E1F8-C36C-495A-93FC-0C247A3E6E5F",
          "E621E1F8-C36C-495A-93FC-0C247A3E6E5", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F "})
        EXPECT_EQ(errorOf<uuid>('"' + text + '"'), DecodingError(Kind::dataCorrupted, {})) << text;
}

TEST(JSONDecoder, ReadsAnEnumerationByItsTextsLetterForLetter)
{
    using records::Colour;
    const JSONDecoder decoder;

    EXPECT_EQ(decoder.decode<Colour>(R"("red")"), Colour::red);
    EXPECT_EQ(decoder.decode<Colour>(R"("private")"), Colour::private_);
    EXPECT_EQ(decoder.decode<Colour>(R"("Green")"), Colour::green);
    for (const auto* other : {R"("RED")", R"("private_")", R"("green")", R"("")"})
        EXPECT_EQ(errorOf<Colour>(other), DecodingError(Kind::dataCorrupted, {})) << other;
    EXPECT_EQ(errorOf<Colour>("0"), DecodingError(Kind::typeMismatch, {}));
}

TEST(JSONDecoder, FollowsItsStrategies)
{
    JSONDecoder decoder;
    decoder.keyDecodingStrategy = platform::KeyDecodingStrategy::convertFromSnakeCase;
    decoder.dateDecodingStrategy = platform::DateDecodingStrategy::formatted(
        platform::DateFormat("yyyy-MM-dd'T'HH:mm:ss.SSSZ"));

    const auto revision = decoder.decode<records::Revision>(
        std::string_view(R"({"changed_at":"1970-01-01T01:00:01.500+0100"})"));

    EXPECT_EQ(revision.changedAt, platform::Date{1.5});
    for (const std::string_view json : {R"({"changed_at":1.5})", R"({"changed_at":"1970-01-01"})",
                                        R"({"changed__At_":"1970-01-01T01:00:01.500+0100"})"})
        EXPECT_THROW(decoder.decode<records::Revision>(json), DecodingError) << json;
}

TEST(JSONReader, FindsConvertedKeysAndNamesThemInPaths)
{
    const std::string_view json = R"({"one_two":{"three_four":[]},"oneTwo":1})";
    const auto dates = platform::DateDecodingStrategy::secondsSince1970();
    const platform::detail::JSONDocument document(
        std::as_bytes(std::span(json)), platform::KeyDecodingStrategy::convertFromSnakeCase, dates);

    const JSONReader value = JSONReader(document).member("oneTwo").member("threeFour");

    EXPECT_THAT(value.codingPath(), ElementsAre("oneTwo", "threeFour"));
    EXPECT_FALSE(JSONReader(document).find("one_two"));
}

TEST(JSONReader, OfNamesThatStandTwiceTheFirstCounts)
{
    reading(R"({"b":1,"a":2,"\u0062":3,"c":4,"a":5})",
            [](JSONReader json)
            {
                EXPECT_EQ(json.decode<int>("b"), 1);
                std::vector<std::pair<std::string_view, std::int64_t>> members;
                for (const auto& [key, value] : json.members())
                    members.emplace_back(key, value.integer());
                EXPECT_THAT(members, ElementsAre(testing::Pair("b", 1), testing::Pair("a", 2),
                                                 testing::Pair("c", 4)));
                return 0;
            });

    // Enough of them for a sort to show whether it keeps the order of equal names.
    std::string many = "{";
    for (int index = 0; index < 400; ++index)
        many += '"' + std::to_string(index * 7 % 100) + "\":" + std::to_string(index) + ',';
    many.back() = '}';
    reading(many,
            [](JSONReader json)
            {
                const auto members = json.members();
                EXPECT_EQ(members.size(), 100U);
                for (std::size_t index = 0; index < members.size(); ++index)
                    EXPECT_EQ(members[index].value.integer(), static_cast<std::int64_t>(index));
                return 0;
            });
}

}  // namespace
