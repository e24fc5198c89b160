#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace commandline
{

enum class Verb
{
    requestCode,
    signIn,
    info,
    status,
    watch,
    refresh,
    consent,
    newsletter,
    signOut,
    delete_,
};

/// The word on the command line and in JSON: "sign-in".
std::string_view word(Verb verb);

/// What a person asked for, understood and complete, but not yet looked into: no file was opened.
struct Command
{
    Verb verb = Verb::info;

    /// One of the two is there.
    std::string preset;
    std::filesystem::path environmentFile;

    std::string clientIdentifier = "tessera";
    std::optional<std::chrono::milliseconds> timeLimit;
    /// Where the passphrase of the keychain is to be read; absent: to be asked for.
    std::optional<int> passphraseDescriptor;
    bool json = false;

    std::string email;
    /// Absent: to be asked for.
    std::optional<platform::SecretString> code;
    /// Absent: the current one.
    std::optional<std::string> revision;
    /// Nobody is to be asked whether to delete.
    bool confirmed = false;
    /// The transitions are wanted, too.
    bool history = false;
};

}  // namespace commandline
