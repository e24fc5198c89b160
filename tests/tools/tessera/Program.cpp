#include "tests/tools/tessera/Program.hpp"

#include <gtest/gtest.h>

namespace commandline
{

Surroundings privateFolders(const std::filesystem::path& home)
{
    std::filesystem::create_directories(home / "run");
    std::filesystem::permissions(home / "run", std::filesystem::perms::owner_all);
    const auto path = home.string();
    return {{"HOME=" + path, "XDG_DATA_HOME=" + path + "/data",
             "XDG_CONFIG_HOME=" + path + "/config", "XDG_STATE_HOME=" + path + "/state",
             "XDG_RUNTIME_DIR=" + path + "/run", "DBUS_SESSION_BUS_ADDRESS=", "TESSERA_KEYCHAIN="},
            ""};
}

accountserver::Settings Stage::settings(const std::filesystem::path& state)
{
    auto settings = accountserver::TestServer::settings(state);
    // Answers that a fault holds back are not waited for at the end.
    settings.graceTime = std::chrono::milliseconds(0);
    return settings;
}

Arguments Stage::with(Arguments arguments) const
{
    arguments.insert(arguments.end(), {"--environment", environment});
    return arguments;
}

std::string Stage::code(const std::string& email) const
{
    server.requestCode(email);
    return server.newestCode(email);
}

std::string Stage::signIn(const std::string& email) const
{
    const auto ended = tessera({"sign-in", "--email", email, "--code", code(email)});
    EXPECT_EQ(ended.exitCode, 0) << ended.errors;
    return token();
}

namespace
{

Arguments onStoredToken(const std::string& verb)
{
    return {"keychain",         verb,
            "--service",        "Ostra Account Local",
            "--group",          "group.net.ostra.account",
            "--synchronizable", "--accessibility",
            "afterFirstUnlock", "Token"};
}

}  // namespace

std::string Stage::token() const
{
    return run(onStoredToken("get"), "", surroundings).output;
}

void Stage::store(const std::string& token) const
{
    EXPECT_EQ(run(onStoredToken("set"), token, surroundings).exitCode, 0);
}

std::int64_t Stage::requests() const
{
    return server.control("GET /requests").json().at("total").to_number<std::int64_t>();
}

}  // namespace commandline
