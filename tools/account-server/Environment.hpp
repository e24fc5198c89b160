#pragma once

#include "tools/account-server/Authority.hpp"
#include "tools/account-server/Tokens.hpp"

#include <cstdint>
#include <string>

namespace accountserver
{

/// The environment file: what a tool must know of the server to talk to it, as a JSON object.
std::string environmentText(const std::string& name, std::uint16_t port, const Tokens& tokens,
                            const Authority& authority);

/// "https://localhost:PORT/"
std::string serverAddress(std::uint16_t port);

}  // namespace accountserver
