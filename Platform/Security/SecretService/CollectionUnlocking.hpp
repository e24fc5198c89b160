#pragma once

#include "Platform/Security/SecretService/SecretConnection.hpp"
#include "Platform/Security/SecretService/SecretItems.hpp"

#include <string>

namespace platform
{

/// Makes the collection of an alias where there is none, and unlocks every collection, with the
/// service's own prompts. Runs on the GLib thread, for one call, on an open connection.
class CollectionUnlocking
{
public:
    CollectionUnlocking(SecretConnection& connection, const GWork& at)
        : connection_(connection), items_(connection, at), at_(at)
    {}

    /// Throws `SecretServiceFailure`, with `userCancelled` where the user dismissed a prompt.
    void run(const std::string& alias);

private:
    struct Waiting;

    GHandle<GVariant> callService(const char* method, GVariant* arguments, const char* answerType);
    bool hasCollection(const std::string& alias);
    void prompt(GVariant* answer);
    void prompt(const std::string& path);
    void waitForCompletion(const std::string& path, Waiting& waiting);

    SecretConnection& connection_;
    SecretItems items_;
    const GWork& at_;
};

}  // namespace platform
