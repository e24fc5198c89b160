#pragma once

#include "Platform/Networking/URLRequest.hpp"

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace fetch
{

/// As the user sees it, in front of errors too.
constexpr auto programName = "tessera-fetch";

enum class Verb
{
    get,
    put,
};

/// The word on the command line and in JSON.
constexpr std::string_view word(Verb verb)
{
    return verb == Verb::get ? "get" : "put";
}

/// An answer is held in memory until it is whole; this much is taken unless the user says else.
constexpr std::size_t usualBodyLimit = std::size_t{16} * 1024 * 1024;

/// What a person asked for, understood and complete, but not yet looked into: no file was opened.
struct Command
{
    Verb verb = Verb::get;
    platform::URLRequest request;

    /// What is sent; `put` alone has it.
    std::filesystem::path file = {};
    /// Remove the file when the server has accepted it.
    bool deleteAfter = false;

    /// Where the answer goes; empty: to standard output.
    std::filesystem::path output = {};
    /// In the place of the system's certificates; empty: those.
    std::filesystem::path authority = {};
    std::size_t bodyLimit = usualBodyLimit;

    int retries = 0;
    /// Seconds, see `nettasks::RetryPolicy`.
    double baseDelay = 1;

    bool json = false;
    bool quiet = false;
};

}  // namespace fetch
