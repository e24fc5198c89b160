#include "Platform/Security/Embedded/EmbeddedInspection.hpp"

#include "Platform/Security/Embedded/DurableFile.hpp"
#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/KeyFile.hpp"
#include "Platform/Security/Embedded/OpenStore.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreFolder.hpp"

#include <sys/stat.h>

#include <cerrno>

namespace platform
{
namespace
{

using Condition = EmbeddedFile::Condition;

EmbeddedFile inspectPlace(const std::filesystem::path& path, bool isFolder)
{
    EmbeddedFile file{.path = path, .isFolder = isFolder};
    struct stat found{};
    if (::lstat(path.c_str(), &found) != 0)
    {
        if (errno == ENOENT)
            return file;
        file.condition = Condition::unseen;
        file.error = errno;
        return file;
    }
    file.condition = conditionOf(found, isFolder);
    file.owner = found.st_uid;
    file.mode = found.st_mode & 07777;
    return file;
}

/// The edge that no fault of a look passes.
template <class Look>
auto told(const Look& look) -> Inspected<decltype(look())>
{
    try
    {
        return look();
    }
    catch (const StoreFault& fault)
    {
        return fault.diagnostic();
    }
    catch (const std::filesystem::filesystem_error& error)
    {
        return StoreFault::ofSystem("Cannot use " + error.path1().string(), error.code().value())
            .diagnostic();
    }
}

}  // namespace

EmbeddedFiles inspectFiles(const StorePlaces& places)
{
    return {.dataFolder = inspectPlace(places.dataFolder, true),
            .keyFolder = inspectPlace(places.keyFolder, true),
            .database = inspectPlace(places.database, false),
            .log = inspectPlace(places.log, false),
            .logIndex = inspectPlace(places.logIndex, false),
            .rollback = inspectPlace(places.rollback, false),
            .key = inspectPlace(places.key, false),
            .lock = inspectPlace(places.lock, false),
            .databaseDraft = inspectPlace(places.databaseDraft, false),
            .keyDraft = inspectPlace(places.keyDraft, false)};
}

Inspected<EmbeddedKey> inspectKey(const StorePlaces& places)
{
    return told(
        [&]
        {
            const auto bytes = readPrivateFile(places.key, KeyFile::size);
            EmbeddedKey key{.isThere = bytes.has_value()};
            key.isWrapped = bytes && KeyFile::decoded(bytes->view()).isWrapped();
            return key;
        });
}

Inspected<EmbeddedContent> inspectContent(const EmbeddedItemStore::Configuration& configuration)
{
    return told(
        [&]
        {
            const Patience patience(configuration.patience);
            FileLayer files;
            const auto store = openStore(configuration, files, patience);
            const Transaction view(store->transactions(), Transaction::Kind::read);
            const auto header = store->table().header();
            return EmbeddedContent{header.format, header.oldestReader, header.items};
        });
}

}  // namespace platform
