#pragma once

#include "Platform/Security/Embedded/EmbeddedInspection.hpp"

#include <filesystem>

namespace commandline
{

/// Where the embedded keychain of this user lies; empty paths where there is no home.
platform::StorePlaces embeddedPlaces();

/// Whether there is a key file that is wrapped under a passphrase. Throws `Failure` where the file
/// cannot be read.
bool keyIsWrapped(const platform::StorePlaces& places);

/// What the database says of itself. Opens it; throws `Failure` where that fails.
platform::EmbeddedContent contentOf(
    const platform::EmbeddedItemStore::Configuration& configuration);

/// A copy of the files in a private folder in memory, where opening them leaves no trace on the
/// originals: a store that is opened makes files beside its own, and may tidy up what a killed
/// program has left. It is gone when this object is.
class EmbeddedCopy
{
public:
    /// Copies until no program has written in between. Throws `Failure` where that cannot be had.
    explicit EmbeddedCopy(const platform::StorePlaces& places);
    ~EmbeddedCopy();
    EmbeddedCopy(const EmbeddedCopy&) = delete;
    EmbeddedCopy& operator=(const EmbeddedCopy&) = delete;

    const platform::StorePlaces& places() const { return places_; }

private:
    std::filesystem::path folder_;
    platform::StorePlaces places_;
};

}  // namespace commandline
