#include "Platform/Security/Embedded/StoreFolder.hpp"
#include "tools/tessera/keychain/Doctor.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

namespace commandline
{
namespace
{

namespace fs = std::filesystem;
using State = Finding::State;

std::string octal(mode_t mode)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

/// A place that there should be, and what stands there.
struct Place
{
    std::string name;
    fs::path path;
    bool isFolder = false;

    const char* kind() const { return isFolder ? "folder" : "file"; }
    const char* properMode() const { return isFolder ? "0700" : "0600"; }
};

Finding fault(const Place& place, const std::string& what, const std::string& next)
{
    return {place.name, State::fault, place.path.string() + " " + what + ".", next};
}

std::string linkFault(const Place& place)
{
    return std::string("Replace the link by the ") + place.kind() +
           " itself, or see where it leads and who made it.";
}

/// What `lstat` says against it; the order is that of the store's own checks.
Finding judge(const Place& place, const struct stat& status)
{
    if (S_ISLNK(status.st_mode))
        return fault(place, "is a symbolic link", linkFault(place));
    if (place.isFolder != S_ISDIR(status.st_mode) || (!place.isFolder && !S_ISREG(status.st_mode)))
        return fault(place, std::string("is no ") + place.kind(),
                     "Move it away; what belongs there is made anew.");
    if (status.st_uid != ::geteuid())
        return fault(
            place, "belongs to the user with the number " + std::to_string(status.st_uid),
            std::string("Find out why; move it away, or have it given to you with \"chown\"."));
    if ((status.st_mode & 077) != 0)
        return fault(
            place, "is open to others (mode " + octal(status.st_mode) + ")",
            std::string("Close it with: chmod ") + place.properMode() + " " + place.path.string());
    return {place.name, State::good,
            place.path.string() + " is yours alone (mode " + octal(status.st_mode) + ")."};
}

/// Nothing where nothing stands.
std::optional<Finding> examine(const Place& place)
{
    struct stat status = {};
    if (::lstat(place.path.c_str(), &status) == 0)
        return judge(place, status);
    if (errno == ENOENT)
        return std::nullopt;
    return fault(place, "cannot be looked at (" + std::generic_category().message(errno) + ")",
                 "Check the folders above it.");
}

bool stands(const fs::path& path)
{
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0;
}

void examineWhole(const platform::StorePlaces& places, Findings& findings)
{
    const bool key = stands(places.key), database = stands(places.database);
    if (database && !key)
        findings.push_back(
            {"embedded.keyMissing", State::fault,
             places.key.string() + " is missing: without it nothing in " +
                 places.database.string() + " can be read.",
             "Bring the key back from a backup. If there is none, the items are lost: move " +
                 places.database.string() + " away, and programs start anew."});
    if (!key && !database)
        findings.push_back({"embedded.empty", State::note,
                            "Nothing was kept yet: folders and key are made at the first use."});
    for (const auto& draft : {places.databaseDraft, places.keyDraft})
        if (stands(draft))
            findings.push_back({"embedded.draft", State::note,
                                draft.string() +
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
    const Place all[] = {{"embedded.dataFolder", places.dataFolder, true},
                         {"embedded.keyFolder", places.keyFolder, true},
                         {"embedded.database", places.database},
                         {"embedded.log", places.log},
                         {"embedded.logIndex", places.logIndex},
                         {"embedded.rollback", places.rollback},
                         {"embedded.key", places.key},
                         {"embedded.lock", places.lock}};
    for (const auto& place : all)
        if (auto finding = examine(place))
            findings.push_back(*std::move(finding));
    examineWhole(places, findings);
    return !hasFault({findings.begin() + static_cast<std::ptrdiff_t>(before), findings.end()});
}

}  // namespace commandline
