#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Tessera/Session/AccountTransition.hpp"

#include <filesystem>
#include <vector>

namespace tessera
{

/// The last 50 transitions of a client's session, in a file that is its user's alone (mode 0600).
/// Several programs may be the same client: each line is added whole, and none is lost.
///
/// Its members wait for the disk: they are called off the main thread. They never throw: a history
/// that cannot be kept is a line in the diagnostics and stops nothing.
class AccountHistory
{
public:
    static constexpr std::size_t limit = 50;

    /// `folder` is made when it is missing. `client` names the file: any text, never empty.
    AccountHistory(std::filesystem::path folder, std::string_view client,
                   platform::DiagnosticSink diagnostics);

    void append(const AccountTransition& transition);

    /// Oldest first. Lines that are damaged, or that a later version wrote, are left out.
    std::vector<AccountTransition> read() const;

private:
    std::filesystem::path file_;
    platform::DiagnosticSink diagnostics_;
};

}  // namespace tessera
