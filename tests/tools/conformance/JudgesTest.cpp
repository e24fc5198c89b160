#include "tests/tools/conformance/Failures.hpp"

#include "Platform/Coding/Base64.hpp"
#include "tests/support/TestKey.hpp"
#include "tests/support/TokenFactory.hpp"

#include <boost/algorithm/hex.hpp>
#include <boost/json/serialize.hpp>

#include <gtest/gtest.h>

namespace conformance
{
namespace
{

using boost::json::object;

TEST(ConformanceJudges, TellRightAnswersFromWrongOnes)
{
    const struct
    {
        std::string_view file;
        std::string_view cases;
        std::vector<std::string> failures;
    } rows[] = {
        {"base64.json",
         R"([{"text":"AQI=","bytes":[1,2]},{"text":"AQ","bytes":null},
            {"text":"AQ==","bytes":[2]},{"text":"Ag==","bytes":null},{"text":"","bytes":null},
            {"text":"*","bytes":[]}])",
         {R"("AQ==")", R"("Ag==")", R"("")", R"("*")"}},
        {"utf8.json",
         R"([{"bytes":[65,255],"text":[65,65533]},{"bytes":[240,159,152,128],
            "text":[128512]},{"bytes":[195,169],"text":[232]}])",
         {"c3a9"}},
        {"utf8_replacement.json",
         R"({"meta":{},"cases":[
            {"id":"right","inHex":"41ff","outHex":"41efbfbd","valid":false},
            {"id":"claimed valid","inHex":"ff","outHex":"efbfbd","valid":true},
            {"id":"other text","inHex":"41","outHex":"42","valid":true}]})",
         {"claimed valid", "other text"}},
        {"capitalized.json",
         R"([{"text":"my editor","capitalized":"My Editor"},
            {"text":"editor","capitalized":"editor"}])",
         {R"("editor")"}},
        {"characters.json",
         R"([{"text":"e\u0301","count":1,"description":"e\u0301"},
            {"text":"ab","count":1,"description":"ab"},{"text":"cd","count":2,"description":"c"},
            {"text":"ef","count":3,"description":"ef","since":"1.1"},
            {"text":"gh","count":3,"description":"gh","since":"99.0"}])",
         {R"("ab")", R"("cd")", R"("ef")"}},
        {"dates.json",
         R"([
            {"text":"1970-01-01T00:00:01.500+0000","canonical":true,"milliseconds":1500},
            {"text":"1970-01-01T00:00:02.000+0000","canonical":true,"milliseconds":2001},
            {"text":"1970-01-01T00:00:03.000+0000","canonical":true,"error":"dataCorrupted"},
            {"text":"soon","canonical":true,"error":"dataCorrupted"},
            {"text":"later","canonical":false,"milliseconds":5},
            {"text":"never","canonical":true,"milliseconds":5}])",
         {R"("1970-01-01T00:00:02.000+0000")", R"("1970-01-01T00:00:03.000+0000")", R"("never")"}},
        {"encoded.json",
         R"([{"text":"\"","json":"[\"\\u0022\"]"},{"text":"a","json":"[\"b\"]"}])",
         {R"("a")"}},
        {"languages.json",
         R"([{"languages":["de","fr"],"header":"de;q=1.0, fr;q=0.8"},
            {"languages":["it"],"header":"it"}])",
         {R"(["it"])"}},
        {"codingkeys.json",
         R"([{"text":"7"},{"text":"-3","integer":"-3"},{"text":"07","integer":"7"}])",
         {R"("07")"}},
        {"properties.json",
         R"([{"why":"UInt","json":"{}"},{"why":"true","json":"{\"k\":true}"},
            {"why":"integer","json":"{\"k\":true}"},{"why":"Float","json":"{\"k\":1}"},
            {"why":"surprise","json":"{}"}])",
         {"integer", "Float", "surprise"}},
        {"snake.json",
         R"([{"key":"one_two","converted":"oneTwo"},
            {"key":"a_b","converted":"a_b"}])",
         {R"("a_b")"}},
        {"jsontestsuite.json",
         R"({"meta":{},"cases":[
            {"name":"y","expect":"y","bytesBase64":"WzFd"},
            {"name":"n","expect":"n","bytesBase64":"Ww=="},
            {"name":"i","expect":"i","bytesBase64":"Ww=="},
            {"name":"deep","expect":"n","repeatBase64":"Ww==","count":90000,"tailBase64":"Cg=="},
            {"name":"not n","expect":"n","bytesBase64":"WzFd"},
            {"name":"not y","expect":"y","bytesBase64":"Ww=="}]})",
         {"not n", "not y"}},
        // Bases with and without the paths that the request builder makes.
        {"url_resolution.json",
         R"({"meta":{},"cases":[
            {"id":"built","base":"http://h/a","relative":"/v2/auth","href":"http://h/v2/auth"},
            {"id":"plain","base":"http://h/a","relative":"/b","href":"http://h/b"},
            {"id":"none","base":"http://h\u0000/","relative":"/v2/auth","href":null},
            {"id":"other","base":"http://h/a","relative":"/v2/account","href":"http://h/account"},
            {"id":"some","base":"http://h/","relative":"/v2/auth","href":null},
            {"id":"refused","base":"h","relative":"/v2/auth","href":"http://h/v2/auth"}]})",
         {"other", "some", "refused"}},
        {"urls.json",
         R"([
            {"base":"https://H.net/a","path":"/b","url":"https://h.NET/b","strict":true},
            {"base":"https://h.net/a","path":"/B","url":"https://h.net/b","strict":true},
            {"base":"https://u@h.net:1/","path":"/c|","url":"https://h.net/","strict":false},
            {"base":"https://g.net/","path":"/d","url":"https://h.net/d","strict":false},
            {"base":"g","path":"/e","url":"https://g/e","strict":false},
            {"base":"g","path":"/f","url":"https://g/f","strict":true}])",
         {R"("https://h.net/a" and "/B")", R"("https://g.net/" and "/d")", R"("g" and "/f")"}},
    };
    for (const auto& [file, cases, failures] : rows)
        EXPECT_EQ(failuresOf(file, cases), failures) << file;
}

/// A case of "json.json": `json` is written in base64.
object decoding(std::string_view type, std::string_view why, std::string_view text, object outcome)
{
    const auto bytes = std::as_bytes(std::span(text));
    outcome["type"] = type;
    outcome["why"] = why;
    outcome["json"] = platform::encodeBase64(bytes);
    if (!outcome.contains("strict"))
        outcome["strict"] = true;
    return outcome;
}

TEST(ConformanceJudges, CompareRecordsAndDecodingErrors)
{
    const object token{{"user", "u"}, {"session", "s"}, {"uuid", nullptr}};
    const boost::json::array cases{
        decoding("AccountToken", "fields", R"({"user":"u","session":"s"})", {{"ok", token}}),
        decoding("AccountToken", "other fields", R"({"user":"v","session":"s"})", {{"ok", token}}),
        decoding("AccountToken", "missing", R"({"user":"u"})",
                 {{"error", "keyNotFound"}, {"path", boost::json::array()}, {"key", "session"}}),
        decoding("AccountToken", "other key", R"({"session":"s"})",
                 {{"error", "keyNotFound"}, {"path", boost::json::array()}, {"key", "session"}}),
        decoding("HTTPMethod", "other kind", "1",
                 {{"error", "dataCorrupted"}, {"path", boost::json::array()}}),
        decoding("AccountToken", "other path", R"({"user":1,"session":"s"})",
                 {{"error", "typeMismatch"}, {"path", {"session"}}}),
        decoding("HTTPMethod", "refused", "[", {{"ok", {{"method", "get"}}}, {"strict", false}}),
        decoding("HTTPMethod", "accepted", "\"put\"",
                 {{"ok", {{"method", "get"}}}, {"strict", false}}),
        decoding("DecodableValue", "integer", "1.0",
                 {{"ok", {{"intValue", "1"}, {"stringValue", nullptr}}}}),
        decoding("DecodableValue", "no text", "1",
                 {{"ok", {{"intValue", "1"}, {"stringValue", "1"}}}}),
        decoding(
            "CustomPropertiesContainer", "members", R"({"t":"1","i":1,"b":true,"f":1.5})",
            {{"ok",
              {{"t", {{"text", "1"}}}, {"i", {{"integer", "1"}}}, {"b", {{"boolean", true}}}}}}),
        decoding("CustomPropertiesContainer", "other kind", R"({"b":true})",
                 {{"ok", {{"b", {{"integer", "1"}}}}}}),
        decoding("Surprise", "no such type", "1", {{"ok", 1}}),
    };

    const std::vector<std::string> expected{R"(AccountToken "other fields")",
                                            R"(AccountToken "other key")",
                                            R"(HTTPMethod "other kind")",
                                            R"(AccountToken "other path")",
                                            R"(HTTPMethod "accepted")",
                                            R"(DecodableValue "no text")",
                                            R"(CustomPropertiesContainer "other kind")",
                                            R"(Surprise "no such type")"};
    EXPECT_EQ(failuresOf("json.json", boost::json::serialize(cases)), expected);
}

std::string hex(std::span<const std::byte> bytes)
{
    std::string text;
    boost::algorithm::hex_lower(
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
        std::back_inserter(text));
    return text;
}

TEST(ConformanceJudges, AskTheVerifierUnderEveryHash)
{
    const TestKey key;
    const std::string message = "message";
    const auto signed384 = key.sign(message, platform::HashFunction::sha384);
    const auto record = [&](const char* id, const char* hash, bool valid)
    {
        return object{{"id", id},
                      {"hash", hash},
                      {"valid", valid},
                      {"keyDerHexPkcs1", hex(key.publicDER())},
                      {"msgHex", hex(std::as_bytes(std::span(message)))},
                      {"sigHex", hex(signed384)}};
    };
    const object file{{"meta", object()},
                      {"cases",
                       {record("right", "SHA-384", true), record("wrong hash", "SHA-256", false),
                        record("not wrong", "SHA-384", false), record("not right", "SHA-512", true),
                        record("no such hash", "SHA-224", true)}}};
    const std::string text = boost::json::serialize(file);

    const std::vector<std::string> expected{"not wrong", "not right", "no such hash"};
    EXPECT_EQ(failuresOf("wycheproof_rsa_pkcs1.json", text), expected);
    EXPECT_EQ(failuresOf("wycheproof_rsa_wrong_hash.json", text).size(), 5u);
}

TEST(ConformanceJudges, TellTheOutcomesOfTokensApart)
{
    const TokenFactory factory;
    const object meta{
        {"keys",
         {object{{"id", "k"}, {"algorithm", "RS256"}, {"pem", factory.publicKey().value}}}}};
    const auto record =
        [](const char* id, const std::string& token, const char* key, const char* none)
    {
        return object{
            {"id", id}, {"key", "k"}, {"token", token}, {"underKey", key}, {"underNone", none}};
    };
    const auto good = factory.token("{}");
    const auto badHeader = factory.token("[]", "{}");
    const auto forged = factory.token(R"({"alg":"RS512"})", "{}");
    const object file{{"meta", meta},
                      {"cases",
                       {record("good", good, "verified", "decoded"),
                        record("payload is no object", factory.token("[1]"), "verified", "decoded"),
                        record("bad header", badHeader, "headerJsonError", "headerJsonError"),
                        record("forged", forged, "verificationFailed", "decoded"),
                        record("malformed", "a.b", "malformedToken", "malformedToken"),
                        record("not forged", good, "verificationFailed", "decoded"),
                        record("not verified", forged, "verified", "decoded"),
                        record("not decoded", badHeader, "headerJsonError", "decoded"),
                        record("header is fine", good, "headerJsonError", "decoded")}}};

    const std::vector<std::string> expected{"not forged", "not verified", "not decoded",
                                            "header is fine"};
    EXPECT_EQ(failuresOf("jws_compact.json", boost::json::serialize(file)), expected);
}

}  // namespace
}  // namespace conformance
