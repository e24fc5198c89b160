#include "Platform/Security/Embedded/EmbeddedInspection.hpp"
#include "tools/tessera/keychain/Doctor.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <system_error>

namespace commandline
{
namespace
{

namespace fs = std::filesystem;
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

/// One of the store's places, and what the store needs to do with what stands there.
struct Place
{
    const char* name;
    const EmbeddedFile& file;
    int access;
    /// Which moves the place elsewhere.
    const char* variable;
};

/// 0, or why this user may not.
int accessError(const fs::path& path, int access)
{
    return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0 ? 0 : errno;
}

/// The user opens what is their own; of a disk that takes nothing, and of what is somebody else's,
/// there is only to keep away.
std::string nextStepTo(const fs::path& path, int error, const Place& place)
{
    struct stat found{};
    if (error == EACCES && ::stat(path.c_str(), &found) == 0 && found.st_uid == ::geteuid())
        return std::string("Allow it with: chmod ") +
               (S_ISDIR(found.st_mode) ? "u+rwx " : "u+rw ") + path.string();
    return std::string("Set HOME or ") + place.variable + " to a folder of yours.";
}

/// Of what stands, and is otherwise as it should be.
std::optional<Finding> judgeAccess(const Place& place)
{
    const auto& path = place.file.path;
    const int error = accessError(path, place.access);
    if (error == 0)
        return std::nullopt;
    const bool isReadable = accessError(path, R_OK) == 0;
    return fault(place.name, place.file, isReadable ? "cannot be written" : "cannot be read",
                 nextStepTo(path, error, place));
}

/// A folder that is missing is made at the first use, below the nearest one that stands.
std::optional<Finding> judgeMissing(const Place& place)
{
    if (!place.file.isFolder)
        return std::nullopt;
    auto above = place.file.path.parent_path();
    while (accessError(above, F_OK) == ENOENT && above.has_relative_path())
        above = above.parent_path();
    const int error = accessError(above, W_OK | X_OK);
    if (error == 0)
        return std::nullopt;
    return fault(place.name, place.file,
                 "is missing and cannot be made, for " + above.string() + " cannot be written",
                 nextStepTo(above, error, place));
}

/// Nothing where nothing stands and all is well.
std::optional<Finding> judge(const Place& place)
{
    const auto& [name, file, access, variable] = place;
    using enum EmbeddedFile::Condition;
    const std::string kind = file.isFolder ? "folder" : "file";
    const std::string path = file.path.string();
    switch (file.condition)
    {
        case missing:
            return judgeMissing(place);
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
    if (auto finding = judgeAccess(place))
        return finding;
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
    constexpr int toRead = R_OK, toChange = R_OK | W_OK, toEnter = R_OK | W_OK | X_OK;
    constexpr auto data = "XDG_DATA_HOME", config = "XDG_CONFIG_HOME";
    const Place all[] = {{"embedded.dataFolder", files.dataFolder, toEnter, data},
                         {"embedded.keyFolder", files.keyFolder, toEnter, config},
                         {"embedded.database", files.database, toChange, data},
                         {"embedded.log", files.log, toChange, data},
                         {"embedded.logIndex", files.logIndex, toChange, data},
                         {"embedded.rollback", files.rollback, toChange, data},
                         {"embedded.key", files.key, toRead, config},
                         {"embedded.lock", files.lock, toChange, config}};
    for (const auto& place : all)
        if (auto finding = judge(place))
            findings.push_back(*std::move(finding));
    examineWhole(files, findings);
    return !hasFault({findings.begin() + static_cast<std::ptrdiff_t>(before), findings.end()});
}

}  // namespace commandline
