#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Embedded/StorePlaces.hpp"

#include <cstdint>
#include <filesystem>
#include <variant>

namespace platform
{

/// What stands in one of an embedded store's places, seen without following a link or opening it.
/// For tools that tell a user what is wrong with a store; any thread may look.
struct EmbeddedFile
{
    /// The first that applies counts, as it does for a store that is opened.
    enum class Condition
    {
        missing,
        symbolicLink,
        /// A folder where a file belongs, or the reverse, or neither.
        otherKind,
        otherOwner,
        openToOthers,
        /// The user's own, and closed to others.
        proper,
        /// It cannot be looked at, which `error` (an `errno`) says more of.
        unseen,
    };

    std::filesystem::path path;
    bool isFolder = false;
    Condition condition = Condition::missing;
    /// Of what stands there: the number of its user, and its permissions (07777).
    std::uint32_t owner = 0;
    std::uint32_t mode = 0;
    int error = 0;

    bool operator==(const EmbeddedFile&) const = default;
};

/// All places. Drafts are there only after a program was killed.
struct EmbeddedFiles
{
    EmbeddedFile dataFolder, keyFolder;
    EmbeddedFile database, log, logIndex, rollback;
    EmbeddedFile key, lock;
    EmbeddedFile databaseDraft, keyDraft;

    bool operator==(const EmbeddedFiles&) const = default;
};

/// What is known of the key without opening it.
struct EmbeddedKey
{
    bool isThere = false;
    /// Under a passphrase.
    bool isWrapped = false;

    bool operator==(const EmbeddedKey&) const = default;
};

/// What the database says of itself, authenticated.
struct EmbeddedContent
{
    std::uint32_t format = 0;
    /// The oldest format whose programs may open it.
    std::uint32_t oldestReader = 0;
    /// Of all programs, with the framework's own.
    std::uint64_t items = 0;

    bool operator==(const EmbeddedContent&) const = default;
};

/// What was found, or why it cannot be told.
template <class Facts>
using Inspected = std::variant<Facts, Diagnostic>;

EmbeddedFiles inspectFiles(const StorePlaces& places);

/// Reads the key file, and changes nothing.
Inspected<EmbeddedKey> inspectKey(const StorePlaces& places);

/// Opens the store as programs do: it makes the files that are missing, and tidies up what a killed
/// program has left. To leave a store as it is, give a copy of its files.
Inspected<EmbeddedContent> inspectContent(const EmbeddedItemStore::Configuration& configuration);

}  // namespace platform
