#pragma once

#include <string>

namespace commandline
{

/// What can be told of the Secret Service without starting it, unlocking it or asking anybody.
struct SecretServiceFacts
{
    bool hasLibrary = false;
    /// A session bus that answers.
    bool hasBus = false;
    bool isRunning = false;
    /// The bus would start it for the first call.
    bool canBeStarted = false;
    bool hasCollection = false;
    bool isLocked = false;

    bool isUsable() const { return isRunning && hasCollection && !isLocked; }
};

/// Waits a few seconds at most.
SecretServiceFacts lookAtSecretService();

}  // namespace commandline
