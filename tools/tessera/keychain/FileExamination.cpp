#include "Platform/Security/Embedded/EmbeddedInspection.hpp"
#include "tools/tessera/keychain/Doctor.hpp"

#include <cstdio>
#include <optional>
#include <system_error>
#include <utility>

namespace commandline
{
namespace
{

using platform::EmbeddedFile;
using State = Finding::State;

std::string octal(std::uint32_t mode)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode));
    return text;
}

Finding fault(const char* name, const EmbeddedFile& file, const std::string& what,
              const std::string& next)
{
    return {name, State::fault, file.path.string() + " " + what + ".", next};
}

/// Nothing where nothing stands.
std::optional<Finding> judge(const char* name, const EmbeddedFile& file)
{
    using enum EmbeddedFile::Condition;
    const std::string kind = file.isFolder ? "folder" : "file";
    const std::string path = file.path.string();
    switch (file.condition)
    {
        case missing:
            return std::nullopt;
        case symbolicLink:
            return fault(name, file, "is a symbolic link",
                         "Replace the link by the " + kind +
                             " itself, or see where it leads and who made it.");
        case otherKind:
            return fault(name, file, "is no " + kind,
                         "Move it away; what belongs there is made anew.");
        case otherOwner:
            return fault(name, file,
                         "belongs to the user with the number " + std::to_string(file.owner),
                         "Find out why; move it away, or have it given to you with \"chown\".");
        case openToOthers:
            return fault(
                name, file, "is open to others (mode " + octal(file.mode) + ")",
                "Close it with: chmod " + std::string(file.isFolder ? "0700 " : "0600 ") + path);
        case unseen:
            return fault(
                name, file,
                "cannot be looked at (" + std::generic_category().message(file.error) + ")",
                "Check the folders above it.");
        case proper:
            break;
    }
    return Finding{name, State::good, path + " is yours alone (mode " + octal(file.mode) + ")."};
}

bool stands(const EmbeddedFile& file)
{
    return file.condition != EmbeddedFile::Condition::missing &&
           file.condition != EmbeddedFile::Condition::unseen;
}

void examineWhole(const platform::EmbeddedFiles& files, Findings& findings)
{
    const bool key = stands(files.key), database = stands(files.database);
    if (database && !key)
        findings.push_back(
            {"embedded.keyMissing", State::fault,
             files.key.path.string() + " is missing: without it nothing in " +
                 files.database.path.string() + " can be read.",
             "Bring the key back from a backup. If there is none, the items are lost: move " +
                 files.database.path.string() + " away, and programs start anew."});
    if (!key && !database)
        findings.push_back({"embedded.empty", State::note,
                            "Nothing was kept yet: folders and key are made at the first use."});
    for (const auto& draft : {files.databaseDraft, files.keyDraft})
        if (stands(draft))
            findings.push_back({"embedded.draft", State::note,
                                draft.path.string() +
                                    " was left by a program that was killed; the next start "
                                    "throws it away."});
}

}  // namespace

bool examineFiles(const platform::StorePlaces& places, Findings& findings)
{
    if (places.dataFolder.empty() || places.keyFolder.empty())
    {
        findings.push_back({"embedded.home", State::fault,
                            "There is no home folder in which the keychain could be.",
                            "Set HOME, or XDG_DATA_HOME and XDG_CONFIG_HOME, to absolute paths."});
        return false;
    }
    const auto before = findings.size();
    const auto files = platform::inspectFiles(places);
    const std::pair<const char*, const EmbeddedFile&> all[] = {
        {"embedded.dataFolder", files.dataFolder},
        {"embedded.keyFolder", files.keyFolder},
        {"embedded.database", files.database},
        {"embedded.log", files.log},
        {"embedded.logIndex", files.logIndex},
        {"embedded.rollback", files.rollback},
        {"embedded.key", files.key},
        {"embedded.lock", files.lock}};
    for (const auto& [name, file] : all)
        if (auto finding = judge(name, file))
            findings.push_back(*std::move(finding));
    examineWhole(files, findings);
    return !hasFault({findings.begin() + static_cast<std::ptrdiff_t>(before), findings.end()});
}

}  // namespace commandline
