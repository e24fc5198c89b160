#include "tools/environment/EnvironmentFile.hpp"

#include "tests/tools/tessera/Program.hpp"

#include <gmock/gmock.h>
#include <boost/json/serialize.hpp>

namespace tools
{
namespace
{

namespace json = boost::json;
using testing::HasSubstr;

/// The field that a file is refused for; "accepted" when it is not.
std::string refusedField(const json::value& file)
{
    try
    {
        parseEnvironment(json::serialize(file));
        return "accepted";
    }
    catch (const EnvironmentFileError& error)
    {
        EXPECT_THAT(error.sentence(), HasSubstr("\"" + error.field() + "\""));
        EXPECT_FALSE(error.nextStep().empty());
        return error.field();
    }
}

TEST(EnvironmentFile, HoldsWhatTheServerWrites)
{
    const commandline::Stage stage;

    const auto file = readEnvironmentFile(stage.environment);

    const auto& environment = file.environment;
    EXPECT_EQ(environment.distribution, tessera::AccountEnvironment::Distribution::direct);
    EXPECT_EQ(environment.server, tessera::AccountEnvironment::Server::local);
    EXPECT_EQ(environment.localizedName, "Ostra Account Local");
    EXPECT_EQ(environment.jwtPublicKey.algorithm, tessera::JWTPublicKeyAlgorithm::RS256);
    EXPECT_EQ(environment.endpointURL.string(), stage.server.address());
    EXPECT_EQ(environment.accountURL.string(), stage.server.address() + "account/");
    EXPECT_EQ(file.sessionConfiguration().trustedAuthority, stage.server.authority());
}

/// The member at the end of a path of one or two keys, and the object that it is in.
std::pair<json::object&, std::string> memberAt(json::object& file, const std::string& path)
{
    const auto dot = path.find('.');
    if (dot == std::string::npos)
        return {file, path};
    return {file[path.substr(0, dot)].as_object(), path.substr(dot + 1)};
}

TEST(EnvironmentFile, IsRefusedByTheNameOfTheFieldThatLacksOrDoesNotParse)
{
    const commandline::Stage stage;
    const auto whole = stage.server.environment().as_object();
    const auto authority = stage.server.authority();
    const struct
    {
        const char* field;
        json::value value;
    } unusable[] = {
        {"distribution", "direct"},
        {"server", "Local"},
        {"localizedName", ""},
        {"localizedKeychainIdentifier", ""},
        {"jwtPublicKey", "text"},
        {"jwtPublicKey.algorithm", "HS256"},
        {"jwtPublicKey.value", ""},
        {"jwtPublicKey.value", "-----BEGIN PUBLIC KEY-----\nMIIB\n-----END PUBLIC KEY-----"},
        {"jwtPublicKey.value", json::string(authority)},
        {"endpointURL", "localhost"},
        {"accountURL", "https://"},
        {"marketingURL", "https://host/\n"},
        {"authority", ""},
        {"authority", json::string(authority + authority.substr(0, 300))},
    };
    for (const auto& [field, value] : unusable)
    {
        auto file = whole;
        const auto [object, member] = memberAt(file, field);
        object[member] = value;
        EXPECT_EQ(refusedField(file), field) << value;
        object.erase(member);
        EXPECT_EQ(refusedField(file), field) << "absent";
    }

    auto trustsTheSystem = whole;
    trustsTheSystem["authority"] = nullptr;
    EXPECT_EQ(refusedField(trustsTheSystem), "accepted");
    for (const auto* text : {"", "{", "[]", "null", "\"text\""})
        EXPECT_THROW(parseEnvironment(text), EnvironmentFileError) << text;
    EXPECT_THROW(readEnvironmentFile("/"), EnvironmentFileError);
}

}  // namespace
}  // namespace tools
