#pragma once

#include "Platform/Security/SecretService/SecretLibrary.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

namespace platform
{

bool isCancelled(const SecretLibrary& library, const GError& error);

/// What an error of a call means. `changes` says that the call would have changed something, and
/// `onService` that it went to the object that every service has from its start on. The error's own
/// text is left out, for it may name an item.
SecretServiceFailure failureOf(const SecretLibrary& library, const GHandle<GError>& error,
                               bool changes, bool onService = false);

}  // namespace platform
