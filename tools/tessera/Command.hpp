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
    bool json = false;

    /// Empty: the token is read from standard input. Never empty for `signIn`.
    std::filesystem::path tokenFile;

    std::string email;
    /// Absent: to be asked for.
    std::optional<platform::SecretString> code;
    /// The account of the token file is anonymous and gets the address.
    bool attach = false;
    /// Absent: the current one.
    std::optional<std::string> revision;
    /// Nobody is to be asked whether to delete.
    bool confirmed = false;
};

}  // namespace commandline
