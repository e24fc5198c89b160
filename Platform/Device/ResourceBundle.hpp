#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform
{

/// A folder of texts in several languages that ships beside a library: for each table a folder with
/// one compiled ICU resource file a language, "root.res" for the texts of last resort.
///
/// Any thread may read it. Nothing depends on the locale that the host has set.
class ResourceBundle
{
public:
    /// Opens the bundle "`identifier`" in the first of `folders` that has it; null when none has.
    static std::shared_ptr<const ResourceBundle> find(
        std::string_view identifier, const std::vector<std::filesystem::path>& folders);

    virtual ~ResourceBundle() = default;

    /// The text of `key` in the first of `languages` (BCP 47 tags, best first) that the table has,
    /// where a region falls back to its language ("de-AT" to "de"); the text of last resort when it
    /// has none of them, and an empty text when there is no such key.
    virtual std::string localizedString(std::string_view key, std::string_view table,
                                        const std::vector<std::string>& languages) const = 0;
};

/// Where the resources of this library may lie: in "../share/tessera" seen from the program's
/// folder, and in the prefix that the library was configured for.
std::vector<std::filesystem::path> systemResourceFolders();

}  // namespace platform
