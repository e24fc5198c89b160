#include "tests/tools/tessera/Program.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;

TEST(TokenFile, ReplacesARegularFileAndRefusesAllElseBeforeTheCodeIsUsedUp)
{
    const Stage stage;
    stage.server.requestCode("anna@example.org");
    const auto code = stage.server.newestCode("anna@example.org");
    const auto signInTo = [&](const std::string& name)
    {
        return stage.tessera({"sign-in", "--email", "anna@example.org", "--code", code,
                              "--token-file", (stage.folder.path / name).string()});
    };
    const auto regular = (stage.folder.path / "regular").string();
    stage.write(regular, "old");
    std::filesystem::create_symlink(regular, stage.folder.path / "link");
    std::filesystem::create_symlink("nowhere", stage.folder.path / "dangling");
    std::filesystem::create_directory(stage.folder.path / "folder");
    ASSERT_EQ(::mkfifo((stage.folder.path / "pipe").c_str(), 0600), 0);

    for (const auto* name : {"link", "dangling", "folder", "folder/", "pipe", "missing/token"})
        EXPECT_EQ(signInTo(name).exitCode, 8) << name;
    EXPECT_EQ(stage.read(regular), "old");
    EXPECT_FALSE(std::filesystem::exists(stage.folder.path / "nowhere"));
    const auto signedIn = signInTo("regular");

    EXPECT_EQ(signedIn.exitCode, 0) << signedIn.errors;
    struct stat status = {};
    ASSERT_EQ(::stat(regular.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    for (const auto& entry : std::filesystem::directory_iterator(stage.folder.path))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
}

TEST(TokenFile, IsReadFromRegularFilesWithATokenAlone)
{
    const Stage stage;
    const auto token = stage.signIn();
    const auto path = [&](const std::string& name) { return (stage.folder.path / name).string(); };
    std::filesystem::create_symlink(stage.tokenFile, path("link"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    stage.write(path("empty"), " \n");
    stage.write(path("two lines"), token + "\n" + token);
    stage.write(path("long"), std::string(100'000, 'a'));
    stage.write(path("spaces around"), " " + token + "\r\n");

    for (const auto* name : {"link", "pipe", "empty", "two lines", "long", "state"})
    {
        const auto ended = stage.tessera({"sign-out", "--token-file", path(name)});
        EXPECT_EQ(ended.exitCode, 8) << name << ended.errors;
        EXPECT_TRUE(std::filesystem::exists(path(name)));
    }
    EXPECT_EQ(stage.requests(), 2) << "the sign-in's own";
    EXPECT_EQ(stage.tessera({"info", "--token-file", path("spaces around")}).exitCode, 0);
}

}  // namespace
}  // namespace commandline
