#pragma once

#include "tests/soak/FileWatcher.hpp"

#include <memory>

namespace soak
{

/// The name of a file layer of SQLite that does what the machine's own does, and tells a watcher,
/// if there is one.
const char* watchedVFS();

/// Replaces the watcher; null for none. Not while a database is in use.
void watchFiles(std::shared_ptr<FileWatcher> watcher);

/// For the layer of the files that are not SQLite's.
const std::shared_ptr<FileWatcher>& currentWatcher();

}  // namespace soak
