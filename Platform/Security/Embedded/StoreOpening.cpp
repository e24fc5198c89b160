#include "Platform/Security/Embedded/DurableFile.hpp"
#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/KeyFile.hpp"
#include "Platform/Security/Embedded/OpenStore.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreLock.hpp"

#include <string>
#include <utility>

namespace platform
{
namespace
{

using Configuration = EmbeddedItemStore::Configuration;

/// The key file as it was read, and the key in it.
struct FoundKey
{
    SecretBytes bytes;
    KeyFile file;
    std::shared_ptr<const MasterKey> key;
};

std::optional<SecretBytes> readKey(const StorePlaces& places)
{
    return readPrivateFile(places.key, KeyFile::size);
}

std::optional<SecretString> asked(const Configuration& configuration, const Patience& patience)
{
    if (!configuration.passphrase)
        return std::nullopt;
    auto answer = configuration.passphrase();
    patience.restart();
    return answer;
}

SecretString passphrase(const Configuration& configuration, const Patience& patience)
{
    auto passphrase = asked(configuration, patience);
    if (!passphrase)
        throw StoreFault(KeychainStatus::notAvailable,
                         "The key is under a passphrase, and none was given.",
                         "Give the keychain's passphrase.");
    return std::move(*passphrase);
}

std::optional<FoundKey> findKey(const StorePlaces& places, const Configuration& configuration,
                                FileLayer& files, const Patience& patience)
{
    auto bytes = readKey(places);
    if (!bytes)
        return std::nullopt;
    // Whoever put it in place may have been killed before the sync: a passphrase that has opened
    // the store must still do so after a power cut.
    syncFolder(files, places.keyFolder);
    auto file = KeyFile::decoded(bytes->view());
    auto key =
        file.unwrapped(file.isWrapped() ? passphrase(configuration, patience) : SecretString());
    return FoundKey{std::move(*bytes), std::move(file), std::move(key)};
}

FoundKey freshKey(const Configuration& configuration, const Patience& patience)
{
    const auto passphrase = asked(configuration, patience);
    if (!passphrase && configuration.passphrase && !configuration.firstKeyMayBePlain)
        throw StoreFault(KeychainStatus::notAvailable,
                         "The keychain's first key is to be made, and no passphrase was given.",
                         "Give a passphrase for the keychain.");
    if (passphrase && passphrase->empty())
        throw StoreFault(KeychainStatus::notAvailable, "An empty passphrase protects nothing.",
                         "Give a passphrase for the keychain that is not empty.");
    auto key = MasterKey::random();
    auto file = passphrase ? KeyFile::wrapped(*key, *passphrase) : KeyFile::plain(*key);
    return {file.encoded(), std::move(file), std::move(key)};
}

/// Where two programs look in different places, one of them sees but a part of a store that is
/// whole: whatever is taken away then is lost for the other.
std::string stepsFor(const std::string& missing, const std::filesystem::path& left)
{
    return "Compare XDG_CONFIG_HOME and XDG_DATA_HOME of the programs that use the keychain: with "
           "other values, another program may see a full store. If they agree, put back a copy "
           "of " +
           missing + ". Only if there is none anywhere, move " + left.string() +
           " away to start anew.";
}

void requireDatabaseNotLost(const FoundKey& key, const std::optional<FileFacts>& database,
                            const StorePlaces& places)
{
    if (key.file.databaseMade && (!database || database->size == 0))
        throw StoreFault(
            KeychainStatus::notAvailable,
            "The keychain file " + places.database.string() +
                " is missing or empty, though its key is there: " + places.key.string(),
            stepsFor(places.database.string(), places.key));
}

/// A key is made only where nothing is there that another key may have sealed.
void requireNothingSealed(const std::optional<FileFacts>& database, const StorePlaces& places)
{
    if (database)
        throw StoreFault(KeychainStatus::notAvailable,
                         "The keychain file " + places.database.string() +
                             " is there, but its key file is missing: " + places.key.string(),
                         stepsFor(places.key.string(), places.database));
    if (factsOf(places.log))
        throw StoreFault(
            KeychainStatus::notAvailable,
            "The keychain's log " + places.log.string() +
                " is there, but its keychain file and its key file are missing: " +
                places.database.string() + ", " + places.key.string(),
            stepsFor(places.database.string() + " and of " + places.key.string(), places.log));
}

/// Whether a start has been finished before, so that nothing needs to be made or cleared away.
bool isSettled(const FoundKey& key, const StorePlaces& places)
{
    const auto database = privateFactsOf(places.database);
    requireDatabaseNotLost(key, database, places);
    return key.file.databaseMade && !factsOf(places.keyDraft) && !factsOf(places.databaseDraft);
}

/// The tables stand in the file itself before the key file says that there is a database, so that
/// from then on a database without them has been damaged.
void makeTables(const StorePlaces& places, const Configuration& configuration, const MasterKey& key,
                const Patience& patience)
{
    Database database(std::filesystem::canonical(places.dataFolder) / places.database.filename(),
                      configuration.vfs, patience);
    Transactions transactions(database);
    {
        Transaction change(transactions, Transaction::Kind::write);
        if (ItemTable::isMissing(database))
            ItemTable::make(database, key);
        change.commit();
    }
    for (int round = 0; !database.merge(); ++round)
    {
        if (!patience.pause(round))
            throw StoreFault(KeychainStatus::notAvailable,
                             "Another program holds the store while it is made.", "Try again.");
    }
}

void settle(FoundKey& key, bool isFresh, const StorePlaces& places,
            const Configuration& configuration, FileLayer& files, const Patience& patience)
{
    discardDraft(files, places.keyDraft);
    discardDraft(files, places.databaseDraft);
    const auto database = privateFactsOf(places.database);
    if (isFresh)
    {
        requireNothingSealed(database, places);
        makeFileOnce(files, places.keyDraft, places.key, key.bytes.view());
    }
    requireDatabaseNotLost(key, database, places);
    if (key.file.databaseMade)
        return;
    // Also what an earlier start may have made without living to sync it.
    syncAbove(places.key, files);
    if (!database)
        makeFileOnce(files, places.databaseDraft, places.database, {});
    syncAbove(places.database, files);
    makeTables(places, configuration, *key.key, patience);
    key.file.databaseMade = true;
    replaceFile(files, places.keyDraft, places.key, key.file.encoded().view());
}

StorePlaces preparedPlaces(const Configuration& configuration, FileLayer& files)
{
    StorePlaces places(configuration.dataFolder, configuration.keyFolder);
    requirePrivateFolder(places.keyFolder, files);
    requirePrivateFolder(places.dataFolder, files);
    return places;
}

}  // namespace

std::unique_ptr<OpenStore> openStore(const Configuration& configuration, FileLayer& files,
                                     const Patience& patience)
{
    const auto places = preparedPlaces(configuration, files);
    for (;;)
    {
        // Passphrases take time, of the user's too, so that the key is made ready before the lock.
        auto found = findKey(places, configuration, files, patience);
        if (found && isSettled(*found, places))
            return std::make_unique<OpenStore>(places, configuration, found->key, patience);

        const bool isFresh = !found;
        if (isFresh)
            found = freshKey(configuration, patience);
        const StoreLock lock(places.lock, patience);
        const auto now = readKey(places);
        if (now.has_value() == isFresh || (now && *now != found->bytes))
            continue;  // another program was faster: what it made counts
        settle(*found, isFresh, places, configuration, files, patience);
        return std::make_unique<OpenStore>(places, configuration, found->key, patience);
    }
}

void rewrapKey(const Configuration& configuration, FileLayer& files, const Patience& patience,
               const std::optional<SecretString>& current,
               const std::optional<SecretString>& replacement)
{
    if (replacement && replacement->empty())
        throw StoreFault(KeychainStatus::parameter, "An empty passphrase protects nothing.",
                         "Give a passphrase, or none at all.");
    const auto places = preparedPlaces(configuration, files);
    const auto bytes = readKey(places);
    if (!bytes)
        throw StoreFault(KeychainStatus::notAvailable, "There is no key file yet.",
                         "Store an item first.");
    const auto file = KeyFile::decoded(bytes->view());
    if (file.isWrapped() != current.has_value())
        throw StoreFault(KeychainStatus::notAvailable,
                         file.isWrapped() ? "The key is under a passphrase, and none was given."
                                          : "A passphrase was given, and the key is under none.",
                         "Give the passphrase that the key is under, if any.");
    const auto key = file.unwrapped(current.value_or(SecretString()));
    auto rewrapped = replacement ? KeyFile::wrapped(*key, *replacement) : KeyFile::plain(*key);
    rewrapped.databaseMade = file.databaseMade;

    const StoreLock lock(places.lock, patience);
    if (readKey(places) != bytes)
        throw StoreFault(KeychainStatus::notAvailable,
                         "Another program changed the key file meanwhile.", "Try again.");
    replaceFile(files, places.keyDraft, places.key, rewrapped.encoded().view());
}

}  // namespace platform
