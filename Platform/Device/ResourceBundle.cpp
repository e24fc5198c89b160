#include "Platform/Device/ResourceBundle.hpp"

#include <unicode/locid.h>
#include <unicode/unistr.h>
#include <unicode/ures.h>

#include <map>
#include <mutex>

namespace platform
{
namespace
{

struct CloseBundle
{
    void operator()(UResourceBundle* bundle) const { ures_close(bundle); }
};
using OpenBundle = std::unique_ptr<UResourceBundle, CloseBundle>;

/// "de-AT" gives "de_AT", then "de": the files that may hold the texts of a language.
std::vector<std::string> filesOf(const std::string& tag)
{
    UErrorCode status = U_ZERO_ERROR;
    const auto locale = icu::Locale::forLanguageTag(tag, status);
    std::vector<std::string> files;
    for (std::string name = U_SUCCESS(status) ? locale.getBaseName() : ""; !name.empty();)
    {
        files.push_back(name);
        const auto cut = name.rfind('_');
        name.resize(cut == std::string::npos ? 0 : cut);
    }
    return files;
}

class FolderBundle final : public ResourceBundle
{
public:
    explicit FolderBundle(std::filesystem::path folder) : folder_(std::move(folder)) {}

    std::string localizedString(std::string_view key, std::string_view table,
                                const std::vector<std::string>& languages) const override
    {
        const std::lock_guard lock(mutex_);
        for (const auto& language : languages)
            for (const auto& file : filesOf(language))
                if (const auto* texts = open(table, file))
                    return textOf(*texts, key);
        const auto* lastResort = open(table, "root");
        return lastResort ? textOf(*lastResort, key) : std::string();
    }

private:
    /// Each file is opened once and kept, present or not.
    const OpenBundle* open(std::string_view table, const std::string& file) const
    {
        const auto path = (folder_ / table).string();
        auto [entry, isNew] = opened_.try_emplace(path + "/" + file);
        if (isNew)
        {
            UErrorCode status = U_ZERO_ERROR;
            entry->second.reset(ures_openDirect(path.c_str(), file.c_str(), &status));
            if (U_FAILURE(status))
                entry->second.reset();
        }
        return entry->second ? &entry->second : nullptr;
    }

    static std::string textOf(const OpenBundle& texts, std::string_view key)
    {
        UErrorCode status = U_ZERO_ERROR;
        int32_t length = 0;
        const auto* text =
            ures_getStringByKey(texts.get(), std::string(key).c_str(), &length, &status);
        std::string utf8;
        if (U_SUCCESS(status))
            icu::UnicodeString(false, text, length).toUTF8String(utf8);
        return utf8;
    }

    const std::filesystem::path folder_;
    mutable std::mutex mutex_;
    mutable std::map<std::string, OpenBundle> opened_;
};

}  // namespace

std::shared_ptr<const ResourceBundle> ResourceBundle::find(
    std::string_view identifier, const std::vector<std::filesystem::path>& folders)
{
    for (const auto& folder : folders)
    {
        std::error_code unreadable;
        const auto bundle = folder / identifier;
        if (std::filesystem::is_directory(bundle, unreadable))
            return std::make_shared<FolderBundle>(bundle);
    }
    return nullptr;
}

std::vector<std::filesystem::path> systemResourceFolders()
{
    std::vector<std::filesystem::path> folders;
    std::error_code unreadable;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", unreadable);
    if (!unreadable)
        folders.push_back(program.parent_path().parent_path() / "share" / "tessera");
    folders.emplace_back(TESSERA_RESOURCES);
    return folders;
}

}  // namespace platform
