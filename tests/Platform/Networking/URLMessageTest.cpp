#include "Platform/Networking/URLError.hpp"
#include "Platform/Networking/URLRequest.hpp"
#include "Platform/Networking/URLResponse.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace platform;
using testing::ElementsAre;
using testing::Pair;

namespace
{

URLRequest request()
{
    return {.url = URL::parse("https://host/").value()};
}

}  // namespace

TEST(URLRequest, SettingAHeaderLeavesOneOfItsNameAndAddingOneMore)
{
    URLRequest made = request();
    made.addHeader("Accept", SecretString("a"));
    made.addHeader("X", SecretString("x"));
    made.addHeader("ACCEPT", SecretString("b"));

    made.setHeader("accept", "c");
    made.setHeader("New", "n");
    made.addHeader("x", SecretString("y"));

    ASSERT_EQ(made.headers.size(), 4U);
    EXPECT_EQ(made.headers[0], (HTTPHeader{"Accept", SecretString("c")}));
    EXPECT_EQ(made.header("NEW")->value.view(), "n");
    EXPECT_EQ(made.header("x")->value.view(), "x");
    EXPECT_EQ(made.headers[3].value.view(), "y");
    EXPECT_EQ(made.header("Other"), nullptr);
}

TEST(HTTPFields, AreReadAsASenderMayWriteThem)
{
    HTTPFields fields;
    for (const auto* line :
         {"Content-Type: text/plain\r\n", "Empty:\r\n", "X:  spaced \t\r\n", "Folded: one\r\n",
          "\t two \r\n", "no name\r\n", ": no name\r\n", "Colons: a:b:c\n", "x: second\r\n"})
        fields.addLine(line);
    fields.add("Added", "value");

    EXPECT_THAT(fields.all(),
                ElementsAre(Pair("Content-Type", "text/plain"), Pair("Empty", ""),
                            Pair("X", "spaced"), Pair("Folded", "one two"), Pair("Colons", "a:b:c"),
                            Pair("x", "second"), Pair("Added", "value")));
    EXPECT_EQ(fields.value("CONTENT-TYPE"), "text/plain");
    EXPECT_EQ(fields.value("x"), "spaced");
    EXPECT_EQ(fields.value("Absent"), std::nullopt);
}

TEST(URLError, NamesTheRefusedHeaderInPrintableLettersAlone)
{
    const auto error = URLError::invalidHeader("X-\r\nBad");

    EXPECT_EQ(error.header(), "X-??Bad");
    EXPECT_STREQ(error.what(), "URLError.invalidHeader");
    EXPECT_THAT(error.errorDescription(), testing::HasSubstr("\"X-??Bad\""));
    EXPECT_NE(error, URLError(URLError::Code::timeout));
}

TEST(URLResponse, HasNoStatusWhenItIsNotOfHTTP)
{
    EXPECT_EQ(httpStatusCode({.url = request().url, .status = 404}), 404);
    EXPECT_EQ(httpStatusCode({.url = request().url, .status = std::nullopt}), -1);
}
