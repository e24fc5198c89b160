#pragma once

#include "Platform/Networking/URLResponse.hpp"
#include "Platform/Security/SecretBytes.hpp"
#include "tools/shared/Failure.hpp"

#include <exception>
#include <filesystem>

namespace fetch
{

/// Any error of a transfer as one sentence and the next step. No address and no header value
/// becomes part of it. `signal` is the one that ended the transfer, or 0.
commandline::Report reportOf(const std::exception_ptr& error, int signal);

/// What is told of an answer that was not accepted: its status, and the start of its text.
commandline::Report refusal(const platform::URLResponse& response,
                            const platform::SecretBytes& body);

/// A file that was named cannot be used.
commandline::Failure unreadable(const std::filesystem::path& file, const std::string& why);

}  // namespace fetch
