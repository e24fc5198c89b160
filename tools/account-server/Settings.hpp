#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace accountserver
{

enum class Algorithm
{
    rs256,
    rs384,
    rs512,
};

/// How one server is to run. The program fills it from its options, tests by hand.
struct Settings
{
    std::filesystem::path state;            ///< folder of keys, database and mailbox
    std::filesystem::path environmentFile;  ///< empty: environment.json in the state folder
    std::filesystem::path readyFile;        ///< empty: none
    std::uint16_t port = 8443;              ///< 0 picks a free one
    std::optional<std::uint16_t> controlPort;

    Algorithm algorithm = Algorithm::rs256;
    /// The name that opens the user agent, and the identifier that it stands for.
    std::map<std::string, std::string> clients = {{"Tessera", "tessera"},
                                                  {"Editor", "editor"},
                                                  {"Example", "example"},
                                                  {"Benchmark", "benchmark"}};
    std::string termsRevision = "2026-10-01";  ///< published when the state folder is new
    std::string name = "Ostra Account Local";

    std::chrono::seconds codeLifetime = std::chrono::minutes(10);
    int codesPerHour = 20;  ///< to one address; 0: no limit
    int codeTries = 5;      ///< wrong tries that spoil a code
    /// How old a sign-in may be to delete the account; 0: any age.
    std::chrono::seconds reauthenticateAfter = std::chrono::minutes(15);

    std::string smtp;  ///< host:port; empty: mailbox folder and standard output
    std::string sender = "account-server@localhost";
    bool printMail = true;
    bool logRequests = true;

    std::chrono::milliseconds idleTime = std::chrono::seconds(60);
    /// What a stop leaves to the answers that are under way.
    std::chrono::milliseconds graceTime = std::chrono::seconds(3);
    std::uint32_t headerLimit = 16 * 1024;
    std::uint64_t bodyLimit = 64 * 1024;
    std::size_t connectionLimit = 1000;
};

}  // namespace accountserver
