#include "CodingExtras/CustomPropertiesContainer.hpp"
#include "CodingExtras/DecodableValue.hpp"
#include "CodingExtras/DictionaryCodingKey.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"

#include <gmock/gmock.h>

#include <limits>
#include <unordered_map>

namespace
{

using namespace codingextras;
using platform::DecodingError;
using Container = CustomPropertiesContainer;
using Members = std::map<std::string, std::variant<std::string, std::int64_t, bool>>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

/// A record of a host, with free-form properties somewhere inside.
struct Event
{
    std::vector<Container> properties;
    std::optional<DecodableValue> identifier;
};
BOOST_DESCRIBE_STRUCT(Event, (), (properties, identifier))

template <class T>
T decoded(std::string_view json)
{
    return platform::JSONDecoder().decode<T>(json);
}

template <class T>
std::string encoded(const T& value)
{
    return platform::JSONEncoder().encode(value);
}

template <class T>
std::optional<DecodingError> errorOf(std::string_view json)
{
    try
    {
        (void)decoded<T>(json);
        return std::nullopt;
    }
    catch (const DecodingError& error)
    {
        return error;
    }
}

TEST(DictionaryCodingKey, KnowsTextsFromIntegers)
{
    const DictionaryCodingKey zero(0), lowest(smallest), digits("7");

    EXPECT_EQ(zero.intValue(), 0);
    EXPECT_EQ(zero.stringValue(), "0");
    EXPECT_EQ(lowest.intValue(), smallest);
    EXPECT_EQ(lowest.stringValue(), "-9223372036854775808");
    EXPECT_EQ(digits.intValue(), std::nullopt);
    EXPECT_NE(digits, DictionaryCodingKey(7));
    EXPECT_EQ(zero.description(), R"(DictionaryCodingKey(stringValue: "0", intValue: 0))");
    EXPECT_EQ(digits.debugDescription(), R"(DictionaryCodingKey(stringValue: "7", intValue: nil))");
}

TEST(CustomPropertiesContainer, WritesTextsSignedIntegersAndBooleansAndNothingElse)
{
    const Container written{{"a", std::string("x")},
                            {"b", "1"},
                            {"c", std::string_view("\xFF")},
                            {"d", std::int8_t{-1}},
                            {"e", short{1}},
                            {"f", largest},
                            {"g", 1LL},
                            {"h", true},
                            {"i", 1}};
    const Container skipped{{"a", '1'},
                            {"b", 1U},
                            {"c", std::uint8_t{1}},
                            {"d", std::size_t{1}},
                            {"e", 1.5},
                            {"f", 1.0F},
                            {"g", platform::Date{1}},
                            {"h", nullptr},
                            {"i", std::any()},
                            {"j", static_cast<const char*>(nullptr)},
                            {"k", Members{}},
                            {"l", std::vector<int>{1}}};

    EXPECT_EQ(encoded(written),
              "{\"a\":\"x\",\"b\":\"1\",\"c\":\"\xEF\xBF\xBD\",\"d\":-1,\"e\":1,"
              "\"f\":9223372036854775807,\"g\":1,\"h\":true,\"i\":1}");
    EXPECT_EQ(skipped.properties().size(), 12U);
    EXPECT_EQ(encoded(skipped), "{}");
    // Three of these names are the same once they are repaired.
    EXPECT_EQ(encoded(Container{{"\xFE", 1}, {"\xFF", 2}, {"\xEF\xBF\xBD", 3}}),
              "{\"\xEF\xBF\xBD\":3}");
    EXPECT_EQ(encoded(Container{{"\xFE", 1}, {"\xFF", 2}}), "{\"\xEF\xBF\xBD\":1}");
}

TEST(CustomPropertiesContainer, ReadsWhatItCanHoldAndLeavesOutTheRest)
{
    const std::pair<std::string_view, Members> cases[] = {
        {R"({"t":"42","n":42,"b":true,"f":1.5,"z":null,"o":{"n":1},"a":[1],"":"e"})",
         {{"t", "42"}, {"n", 42}, {"b", true}, {"", "e"}}},
        {R"({"a":1.0,"b":1e2,"c":-9223372036854775808,"d":9223372036854775808,"e":1e19})",
         {{"a", 1}, {"b", 100}, {"c", smallest}}},
        {R"({"k":"first","k":2,"z":null,"z":2})", {{"k", "first"}}},
        {R"({"u\u0000":"\ud83d\ude00"})", {{std::string("u\0", 2), "\xF0\x9F\x98\x80"}}}};
    for (const auto& [json, expected] : cases)
        EXPECT_EQ(decoded<Container>(json).as<Members>(), expected) << json;

    using enum DecodingError::Kind;
    EXPECT_EQ(errorOf<Container>("[]"), DecodingError(typeMismatch, {}));
    EXPECT_EQ(errorOf<Container>("null"), DecodingError(valueNotFound, {}));
    EXPECT_EQ(errorOf<Container>("{\"k\":1,}"), DecodingError(dataCorrupted, {}));
    EXPECT_EQ(errorOf<Event>(R"({"properties":[{},1]})"),
              DecodingError(typeMismatch, {"properties", "Index 1"}));
}

TEST(CustomPropertiesContainer, TravelsInsideARecordAndBack)
{
    const auto event =
        decoded<Event>(R"({"properties":[{"t":"x\n","i":-1,"b":false},{}],"identifier":7})");

    EXPECT_EQ(event.identifier, DecodableValue({7, std::nullopt}));
    EXPECT_EQ(encoded(event.properties), R"([{"b":false,"i":-1,"t":"x\n"},{}])");
}

TEST(CustomPropertiesContainer, OwnsItsTextsAndGivesValuesByType)
{
    std::string text = "a text that is too long to be kept in place";
    const Container container{{"t", text.data()},
                              {"v", std::string_view(text)},
                              {"i", short{300}},
                              {"b", true},
                              {"f", 1.5}};
    const std::string copy = text;
    text.assign(text.size(), 'x');

    EXPECT_EQ(container.value<std::string>("t"), copy);
    EXPECT_EQ(container.value<std::string>("v"), copy);
    EXPECT_EQ(container.value<std::int64_t>("i"), 300);
    EXPECT_EQ(container.value<std::int8_t>("i"), std::nullopt);
    EXPECT_EQ(container.value<int>("b"), std::nullopt);
    EXPECT_EQ(container.value<bool>("i"), std::nullopt);
    EXPECT_EQ(container.value<double>("f"), 1.5);
    EXPECT_EQ(std::any_cast<short>(*container["i"]), 300);
    EXPECT_EQ(container["absent"], nullptr);
}

TEST(CustomPropertiesContainer, ConvertsToAndFromTheMapsOfAHost)
{
    const std::unordered_map<std::string, std::variant<bool, int, std::string>> given{
        {"b", true}, {"i", 1}, {"t", "x"}};
    const Container container(given);
    const Container again(container.as<std::unordered_map<std::string, std::any>>());

    EXPECT_EQ(again.as<std::decay_t<decltype(given)>>(), given);
    EXPECT_EQ(again.as<Members>(), (Members{{"b", true}, {"i", 1}, {"t", "x"}}));
    EXPECT_THAT((again.as<std::map<std::string, std::string>>()),
                testing::ElementsAre(testing::Pair("t", "x")));
    const Container literals(std::map<std::string_view, const char*>{{"k", "v"}});
    EXPECT_EQ(literals.value<std::string>("k"), "v");
}

TEST(DecodableValue, IsAnIntegerOrATextOrNeither)
{
    using Values = std::vector<DecodableValue>;
    EXPECT_EQ(decoded<Values>(R"([42,1e2,"42","",9223372036854775808,true,1.5,null,[1],{"a":1}])"),
              (Values{{42, {}}, {100, {}}, {{}, "42"}, {{}, ""}, {}, {}, {}, {}, {}, {}}));
    EXPECT_EQ(errorOf<DecodableValue>("1 2"),
              DecodingError(DecodingError::Kind::dataCorrupted, {}));
}

}  // namespace
