#include "tools/tessera/keychain/EmbeddedFiles.hpp"

#include "tools/tessera/Failure.hpp"

#include <sys/stat.h>

#include <cstdlib>
#include <system_error>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace commandline
{
namespace
{

namespace fs = std::filesystem;
using platform::StorePlaces;

[[noreturn]] void failToCopy(const std::string& reason)
{
    throw Failure({ExitCode::keychain, "noCopy",
                   "The keychain's files cannot be copied to look into them (" + reason + ").",
                   "Close the programs that use the keychain, and try again."});
}

template <class Facts>
Facts readable(platform::Inspected<Facts> inspected)
{
    if (const auto* fault = std::get_if<platform::Diagnostic>(&inspected))
        throw Failure({ExitCode::keychain,
                       "unreadable",
                       "The keychain's files cannot be read.",
                       "Let \"tessera keychain doctor\" look for the cause.",
                       {*fault}});
    return std::get<Facts>(std::move(inspected));
}

/// What changes with every write.
using Stamp = std::tuple<ino_t, off_t, time_t, long>;

Stamp stampOf(const fs::path& file)
{
    struct stat status = {};
    if (::lstat(file.c_str(), &status) != 0)
        return {};
    return {status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

std::vector<Stamp> stampsOf(const StorePlaces& places)
{
    return {stampOf(places.database), stampOf(places.log), stampOf(places.rollback),
            stampOf(places.key)};
}

fs::path freshFolder()
{
    // A file system in memory: what is copied holds the key.
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    for (const fs::path& parent : {fs::path(runtime == nullptr ? "" : runtime),
                                   fs::path("/dev/shm"), fs::temp_directory_path()})
    {
        auto name = (parent / "tessera-doctor.XXXXXX").string();
        if (parent.is_absolute() && ::mkdtemp(name.data()) != nullptr)
            return name;
    }
    failToCopy("no temporary folder");
}

void copyIfThere(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (error && error != std::errc::no_such_file_or_directory)
        failToCopy(error.message());
    if (error)
        fs::remove(to, error);
}

}  // namespace

StorePlaces embeddedPlaces()
{
    const auto configuration = platform::EmbeddedItemStore::Configuration::ofUser();
    return StorePlaces(configuration.dataFolder, configuration.keyFolder);
}

bool keyIsWrapped(const StorePlaces& places)
{
    return readable(platform::inspectKey(places)).isWrapped;
}

platform::EmbeddedContent contentOf(const platform::EmbeddedItemStore::Configuration& configuration)
{
    return readable(platform::inspectContent(configuration));
}

EmbeddedCopy::EmbeddedCopy(const StorePlaces& places)
    : folder_(freshFolder()), places_(folder_ / "data", folder_ / "key")
{
    try
    {
        for (const auto& folder : {places_.dataFolder, places_.keyFolder})
        {
            fs::create_directory(folder);
            fs::permissions(folder, fs::perms::owner_all);
        }
        for (int tries = 0; tries < 20; ++tries)
        {
            const auto before = stampsOf(places);
            copyIfThere(places.key, places_.key);
            copyIfThere(places.database, places_.database);
            copyIfThere(places.log, places_.log);
            copyIfThere(places.rollback, places_.rollback);
            if (before == stampsOf(places))
                return;
        }
        failToCopy("they change all the time");
    }
    catch (...)
    {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
        throw;
    }
}

EmbeddedCopy::~EmbeddedCopy()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

}  // namespace commandline
