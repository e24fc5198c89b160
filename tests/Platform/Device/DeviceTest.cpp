#include "Platform/Device/Device.hpp"
#include "Platform/Device/ResourceBundle.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

using namespace platform;

namespace
{

EnvironmentReader reading(std::map<std::string, std::string> variables)
{
    return [variables = std::move(variables)](const char* name) -> std::optional<std::string>
    {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    };
}

}  // namespace

TEST(Device, SystemVersionIsAlwaysThreeNumbers)
{
    const std::vector<std::array<std::string, 2>> cases{
        {"ID=debian\nVERSION_ID=\"12\"\n", "12.0.0"},
        {"VERSION_ID='22.04'\nVERSION_ID=9\n", "22.4.0"},
        {"VERSION_ID=3.19.1.7\n", "3.19.1"},
        {"VERSION_ID=40-beta\n", "40.0.0"},
        {"VERSION_ID=99999999999999999999\n", "999999999.0.0"},
    };
    for (const auto& [release, version] : cases)
    {
        const TemporaryFolder root;
        root.write("etc/os-release", release);
        EXPECT_EQ(systemDevice(root.path())->systemVersion(), version) << release;
    }
    // A rolling distribution names no version: the kernel's stands in.
    for (const std::string release : {"ID=arch\n", "VERSION_ID=rolling\n"})
    {
        const TemporaryFolder root;
        root.write("etc/os-release", release);
        const auto version = systemDevice(root.path())->systemVersion();
        EXPECT_EQ(std::count(version.begin(), version.end(), '.'), 2) << version;
        EXPECT_NE(version, "0.0.0");
    }
}

TEST(Device, ModelComesFromTheFirstPlaceThatNamesOne)
{
    const TemporaryFolder root;
    const auto device = systemDevice(root.path());
    EXPECT_EQ(device->model(), "Linux");

    root.write("sys/firmware/devicetree/base/model", std::string("Board 5\0", 8));
    EXPECT_EQ(device->model(), "Board 5");

    root.write("sys/class/dmi/id/product_name", "20XW0026GE\n");
    EXPECT_EQ(device->model(), "20XW0026GE");
}

TEST(Device, PreferredLanguagesFollowTheEnvironment)
{
    using Variables = std::map<std::string, std::string>;
    struct Case
    {
        Variables environment;
        std::vector<std::string> languages;
    };
    const std::vector<Case> cases{
        {{}, {}},
        {{{"LANG", "C.UTF-8"}, {"LANGUAGE", "de"}}, {}},
        {{{"LC_ALL", "POSIX"}, {"LANG", "de_DE.UTF-8"}}, {}},
        {{{"LANG", "de_AT.UTF-8"}}, {"de-AT"}},
        {{{"LANG", "en_US.UTF-8"}, {"LC_MESSAGES", "fr_CH"}}, {"fr-CH"}},
        {{{"LANG", "de_CH.UTF-8"}, {"LANGUAGE", "de_CH:en::fr"}}, {"de-CH", "en", "fr"}},
        {{{"LANG", "sr_RS@latin"}}, {"sr-Latn-RS"}},
        {{{"LANG", "de_DE@euro"}}, {"de-DE"}},
        {{{"LANG", "en_GB"}, {"LANGUAGE", "!\x01nonsense\n:pt_BR"}}, {"pt-BR", "en-GB"}},
    };
    for (const auto& [environment, languages] : cases)
        EXPECT_EQ(systemDevice("/", reading(environment))->preferredLanguages(), languages)
            << testing::PrintToString(environment);
}

TEST(ResourceBundle, TextsFallBackFromRegionToLanguageToTheLastResort)
{
    const auto bundle = ResourceBundle::find("net.ostra.Tessera", systemResourceFolders());
    ASSERT_TRUE(bundle);
    const auto title = [&](std::vector<std::string> languages)
    { return bundle->localizedString("Private_Release_Channel", "Tessera", languages); };

    EXPECT_EQ(title({}), "Private");
    EXPECT_EQ(title({"de-AT", "en"}), "Privat");
    EXPECT_EQ(title({"xx-not a tag", "fr-FR", "de"}), "Privat");
    EXPECT_EQ(title({"fr-FR", "ja"}), "Private");
    EXPECT_EQ(title({"en-GB", "de"}), "Private") << "English comes first for this user";
    EXPECT_EQ(bundle->localizedString("No_Such_Key", "Tessera", {"de"}), "");
    EXPECT_EQ(bundle->localizedString("Unknown_Error", "NoSuchTable", {"de"}), "");
    EXPECT_EQ(ResourceBundle::find("no.such.bundle", systemResourceFolders()), nullptr);
}
