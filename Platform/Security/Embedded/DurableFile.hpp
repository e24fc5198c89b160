#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>

namespace platform
{

class FileLayer;

/// Small files that are there whole or not at all, whenever the process is killed or the power cut.
/// A draft is written and synced under a name of its own first. Only whoever holds the store's lock
/// may write drafts, so one that is found then was left by a killed process and is thrown away.
///
/// All throw `StoreFault`.
void makeFileOnce(FileLayer& files, const std::filesystem::path& draft,
                  const std::filesystem::path& file, std::span<const std::byte> content);
void replaceFile(FileLayer& files, const std::filesystem::path& draft,
                 const std::filesystem::path& file, std::span<const std::byte> content);
void discardDraft(FileLayer& files, const std::filesystem::path& draft);

/// Makes the names in the folder durable: a file that was found is then found again.
void syncFolder(FileLayer& files, const std::filesystem::path& folder);

/// The file's bytes, of which there must not be more than `limit`; nothing where there is no file.
std::optional<SecretBytes> readPrivateFile(const std::filesystem::path& file, std::size_t limit);

}  // namespace platform
