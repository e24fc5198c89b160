#include "Platform/Security/Embedded/StorePlaces.hpp"

#include <utility>

namespace platform
{

StorePlaces::StorePlaces(std::filesystem::path data, std::filesystem::path settings)
    : dataFolder(std::move(data)),
      keyFolder(std::move(settings)),
      database(dataFolder / "keychain.db"),
      databaseDraft(dataFolder / "keychain.db.new"),
      log(dataFolder / "keychain.db-wal"),
      logIndex(dataFolder / "keychain.db-shm"),
      rollback(dataFolder / "keychain.db-journal"),
      key(keyFolder / "keychain.key"),
      keyDraft(keyFolder / "keychain.key.new"),
      lock(keyFolder / "keychain.lock")
{}

}  // namespace platform
