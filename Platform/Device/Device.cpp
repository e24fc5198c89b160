#include "Platform/Device/Device.hpp"

#include <sys/utsname.h>
#include <unicode/locid.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>

namespace platform
{
namespace
{

std::string firstLine(const std::filesystem::path& file)
{
    std::ifstream in(file);
    std::string line;
    // Device-tree texts end in NUL, DMI texts in a line feed.
    std::getline(in, line);
    return line.substr(0, line.find('\0'));
}

/// The value of VERSION_ID in an os-release file, without its quotes.
std::string versionId(const std::filesystem::path& file)
{
    constexpr std::string_view key = "VERSION_ID=";
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
    {
        if (!line.starts_with(key))
            continue;
        auto value = line.substr(key.size());
        std::erase_if(value, [](char c) { return c == '"' || c == '\''; });
        return value;
    }
    return {};
}

/// The first three numbers of a version text, as major.minor.patch; empty when it starts with none.
std::string threeNumbers(std::string_view text)
{
    std::array<unsigned long, 3> numbers{};
    std::size_t count = 0;
    while (count < numbers.size() && !text.empty() && text[0] >= '0' && text[0] <= '9')
    {
        const auto end = std::min(text.find_first_not_of("0123456789"), text.size());
        for (const char digit : text.substr(0, std::min<std::size_t>(end, 9)))
            numbers[count] = numbers[count] * 10 + static_cast<unsigned long>(digit - '0');
        ++count;
        text.remove_prefix(end);
        if (text.empty() || text[0] != '.')
            break;
        text.remove_prefix(1);
    }
    if (count == 0)
        return {};
    return std::to_string(numbers[0]) + "." + std::to_string(numbers[1]) + "." +
           std::to_string(numbers[2]);
}

/// The BCP 47 tag of a POSIX locale name such as "sr_RS.UTF-8@latin"; empty for "C" and nonsense.
std::string languageTag(std::string_view locale)
{
    const auto name = locale.substr(0, locale.find_first_of(".@"));
    if (name.empty() || name == "C" || name == "POSIX")
        return {};

    std::string canonical(name);
    const auto at = locale.find('@');
    const auto modifier = at == std::string_view::npos ? std::string_view() : locale.substr(at + 1);
    const auto languageEnd = std::min(canonical.find_first_of("_-"), canonical.size());
    constexpr std::array<std::array<std::string_view, 2>, 3> scripts{
        {{"latin", "_Latn"}, {"cyrillic", "_Cyrl"}, {"devanagari", "_Deva"}}};
    for (const auto& [word, script] : scripts)
        if (modifier == word)
            canonical.insert(languageEnd, script);

    UErrorCode status = U_ZERO_ERROR;
    const auto parsed = icu::Locale::createCanonical(canonical.c_str());
    const auto tag = parsed.toLanguageTag<std::string>(status);
    const bool named = U_SUCCESS(status) && tag != "und" && !tag.starts_with("und-");
    return named ? tag : std::string();
}

class SystemDevice final : public Device
{
public:
    SystemDevice(std::filesystem::path root, EnvironmentReader environment)
        : root_(std::move(root)), environment_(std::move(environment))
    {}

    std::string model() const override
    {
        for (const char* file :
             {"sys/class/dmi/id/product_name", "sys/firmware/devicetree/base/model"})
        {
            auto model = firstLine(root_ / file);
            if (!model.empty())
                return model;
        }
        return "Linux";
    }

    std::string systemVersion() const override
    {
        for (const char* file : {"etc/os-release", "usr/lib/os-release"})
        {
            auto version = threeNumbers(versionId(root_ / file));
            if (!version.empty())
                return version;
        }
        // Distributions that roll carry no version of their own; their kernel does.
        utsname kernel{};
        uname(&kernel);
        auto version = threeNumbers(kernel.release);
        return version.empty() ? "0.0.0" : version;
    }

    std::vector<std::string> preferredLanguages() const override
    {
        std::vector<std::string> tags;
        for (const auto& locale : preferredLocales())
        {
            auto tag = languageTag(locale);
            if (!tag.empty() && std::find(tags.begin(), tags.end(), tag) == tags.end())
                tags.push_back(std::move(tag));
        }
        return tags;
    }

private:
    /// As gettext reads the environment: LANGUAGE is a list, and counts only beside a real locale.
    std::vector<std::string> preferredLocales() const
    {
        std::string locale;
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
        {
            if (!locale.empty())
                break;
            locale = environment_(name).value_or("");
        }
        if (languageTag(locale).empty())
            return {};

        std::vector<std::string> locales;
        std::string list = environment_("LANGUAGE").value_or("");
        for (std::size_t from = 0; from < list.size();)
        {
            const auto to = std::min(list.find(':', from), list.size());
            locales.push_back(list.substr(from, to - from));
            from = to + 1;
        }
        locales.push_back(locale);
        return locales;
    }

    std::filesystem::path root_;
    EnvironmentReader environment_;
};

std::optional<std::string> readEnvironment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

}  // namespace

std::shared_ptr<Device> systemDevice(std::filesystem::path root, EnvironmentReader environment)
{
    return std::make_shared<SystemDevice>(std::move(root),
                                          environment ? std::move(environment) : readEnvironment);
}

}  // namespace platform
