#include "tests/tools/conformance/Failures.hpp"

#include "Platform/Coding/Base64.hpp"

#include <boost/json/serialize.hpp>

#include <gtest/gtest.h>

namespace conformance
{
namespace
{

using boost::json::array;
using boost::json::object;
using Names = std::vector<std::string>;

constexpr std::string_view okAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

/// A step of a server's script.
object step(std::string_view op)
{
    return {{"op", op}};
}

object send(std::string_view bytes, std::string_view op = "send")
{
    return {{"op", op}, {"base64", platform::encodeBase64(asBytes(bytes))}};
}

object fault(std::string_view id, const array& steps, std::string_view outcome, object more)
{
    more["id"] = id;
    more["steps"] = steps;
    more["outcome"] = outcome;
    return more;
}

Names failuresAmong(std::string_view file, const object& meta, const array& cases)
{
    return failuresOf(file, boost::json::serialize(object{{"meta", meta}, {"cases", cases}}));
}

TEST(ConformanceNetworkJudges, CompareHowACallEnds)
{
    const object status{{"status", 200}, {"bodyLength", 2}};
    const array ok{step("readRequest"), send(okAnswer), step("close")};
    const array lost{step("readRequest"), step("rst")};
    const array silent{step("noListen")};
    const array endless{step("readHead"), send("HTTP/1.1 200 OK\r\n\r\n"),
                        send(std::string(10'000, 'x'), "repeatForever")};
    const array cases{
        fault("ok", ok, "status", status),
        fault("rejected", {step("readRequest"), send("HTTP/1.1 404 \r\n\r\ntext"), step("close")},
              "status", {{"status", 404}}),
        fault("lost", lost, "transport", {{"cls", "timeout or connectionLost"}}),
        fault("refused", silent, "transport", {{"cls", "connectionRefused"}}),
        fault("no name", {{{"op", "host"}, {"name", "no.invalid"}}}, "transport",
              {{"cls", "nameNotFound"}}),
        fault("either", ok, "status or transport", {{"status", 200}, {"cls", "tooLarge"}}),
        fault("endless", endless, "transport", {{"cls", "tooLarge"}}),
        fault("late", {step("readHead"), step("hold")}, "transport", {{"cls", "timeout"}}),
        fault("other status", ok, "status", {{"status", 201}}),
        fault("other length", ok, "status", {{"status", 200}, {"bodyLength", 3}}),
        fault("no error", ok, "transport", {{"cls", "connectionLost"}}),
        fault("no response", lost, "status", status),
        fault("other class", lost, "transport", {{"cls", "timeout"}}),
        fault("not either", lost, "status or transport", {{"status", 200}, {"cls", "tooLarge"}}),
        fault("not refused", silent, "transport", {{"cls", "timeout"}}),
        // The second call waits for an answer on the connection of the first.
        fault("once only", {step("readRequest"), send(okAnswer), step("hold")}, "status", status),
        fault("no such step", {step("sing")}, "transport", {{"cls", "timeout"}}),
        fault("no such outcome", ok, "perhaps", status)};

    const Names expected{"other status", "other length",   "no error",    "no response",
                         "other class",  "not either",     "not refused", "once only",
                         "no such step", "no such outcome"};
    EXPECT_EQ(failuresAmong("http_fault_scripts.json", {}, cases), expected);
}

TEST(ConformanceNetworkJudges, CompareWhichServersAreTrusted)
{
    const object meta{{"defaults",
                       {{"issuer", "root"},
                        {"key", "ec:P-256"},
                        {"subject", "account.test"},
                        {"san", "DNS:account.test"},
                        {"ca", false},
                        {"notBefore", "now"},
                        {"notAfter", "in a year"}}}};
    const auto server =
        [](const char* id, const char* expect, const boost::json::value& leaf, const char* options)
    { return object{{"id", id}, {"expect", expect}, {"leaf", leaf}, {"server", options}}; };
    const object none, unknown{{"issuer", "other root"}}, self{{"issuer", "self"}};
    const object old{{"notBefore", "2020-01-01T00:00:00Z"}, {"notAfter", "2021-01-01T00:00:00Z"}};
    const array cases{
        server("good", "accept", none, ""),
        server("newest", "accept", none, "-tls1_3"),
        server("unknown", "refuse", unknown, ""),
        server("self", "refuse", self, ""),
        server("old", "refuse", old, ""),
        server("old version", "refuse", none, "-tls1_1 -cipher ALL:@SECLEVEL=0"),
        server("nobody", "refuse", nullptr, "-tls1_2 -cipher aNULL:@SECLEVEL=0 -nocert"),
        server("plain", "refuse", none, "plain HTTP"),
        server("either", "either", none, ""),
        server("not refused", "refuse", none, ""),
        server("not accepted", "accept", unknown, ""),
        server("no server", "refuse", nullptr, "-nocert"),
        server("no such option", "refuse", none, "-sing"),
        server("no such field", "refuse", {{"song", "la"}}, "")};

    const Names expected{"not refused", "not accepted", "no server", "no such option",
                         "no such field"};
    EXPECT_EQ(failuresAmong("tls_cases.json", meta, cases), expected);
}

}  // namespace
}  // namespace conformance
