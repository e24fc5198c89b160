#pragma once

#include "Platform/Observation/Publisher.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <optional>

namespace tessera
{

/// Whoever knows the current bearer token: what parts of a host depend on that talk to the server
/// themselves and need nothing else of the account.
class AccountTokenProviding
{
public:
    virtual ~AccountTokenProviding() = default;

    /// The token now, and each later one; nothing while none is held.
    virtual platform::Publisher<std::optional<platform::SecretString>> token() const = 0;
};

}  // namespace tessera
