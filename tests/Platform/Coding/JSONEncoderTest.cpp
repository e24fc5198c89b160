#include "Platform/Coding/JSONEncoder.hpp"

#include <limits>

#include <gtest/gtest.h>

#include "tests/Platform/Coding/Records.hpp"

namespace
{

using platform::JSONDecoder;
using platform::JSONEncoder;

TEST(JSONEncoder, WritesPresentFieldsUnderTheirKeysAndLeavesAbsentOnesOut)
{
    records::Order order;
    order.issuedAt = {1784073600};
    order.audience = "editor.mac";
    order.terms = {"1"};

    EXPECT_EQ(JSONEncoder().encode(order),
              R"({"iat":1784073600,"aud":"editor.mac","terms":{"accepted_revision":"1"}})");
}

TEST(JSONEncoder, WhatItWritesDecodesToTheSameRecord)
{
    records::Order order;
    order.issuedAt = {1784073600.125};
    order.audience = "quote\" back\\slash \n\t\b\f\r \x01 é 😀 " + std::string(2000, 'x') + '\0';
    order.uuid = boost::uuids::uuid{{0xE6, 0x21, 0xE1, 0xF8, 0xC3, 0x6C, 0x49, 0x5A, 0x93, 0xFC,
                                     0x0C, 0x24, 0x7A, 0x3E, 0x6E, 0x5F}};
    order.email = "";
    order.tags = {"", "a"};

    const std::string json = JSONEncoder().encode(order);

    EXPECT_EQ(JSONDecoder().decode<records::Order>(json), order);
    EXPECT_NE(json.find(R"("uuid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")"), std::string::npos);
}

TEST(JSONEncoder, SeparatesValuesOfEveryKind)
{
    using Values = std::vector<std::optional<std::vector<std::int64_t>>>;
    const Values values = {std::vector<std::int64_t>{1, -2}, std::nullopt,
                           std::vector<std::int64_t>{}};
    std::string sink = "before ";

    JSONEncoder().encode(values, sink);

    EXPECT_EQ(sink, "before [[1,-2],null,[]]");
    EXPECT_EQ(JSONEncoder().encode(std::vector{records::Colour::private_, records::Colour::green}),
              R"(["private","Green"])");
    EXPECT_EQ(JSONEncoder().encode(records::Shout{3}), R"("AAA")");
}

TEST(JSONEncoder, WritesNumbersThatReadBackTheSame)
{
    for (const double number : {0.0, -1.0, 0.1, 1.5e300, 5e-324, 9007199254740991.0,
                                9007199254740993.0, 1e19, -1784073600.1234567})
    {
        const std::string json = JSONEncoder().encode(number);
        EXPECT_EQ(JSONDecoder().decode<double>(json), number) << json;
    }
    EXPECT_EQ(JSONEncoder().encode(1e15), "1000000000000000");
    for (const double number :
         {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
        EXPECT_THROW(JSONEncoder().encode(number), platform::EncodingError);
}

TEST(JSONEncoder, RepairsTextThatIsNotUTF8)
{
    EXPECT_EQ(JSONEncoder().encode(std::string("a\xFF\"b")), "\"a\xEF\xBF\xBD\\\"b\"");
}

}  // namespace
