#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Tessera/Session/AccountTransition.hpp"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tessera
{

/// The last 50 transitions of a client's session, in a file that is its user's alone (mode 0600):
/// one line of JSON each, with the moment in seconds since 1970 and the names of state and cause.
/// Several programs may be the same client: each line is added whole, and none is lost.
///
/// Its members wait for the disk, and for another program's turn 1 s at most; they are called off
/// the main thread, on any thread. They never throw: a history that cannot be kept is a line in the
/// diagnostics and stops nothing.
class AccountHistory
{
public:
    static constexpr std::size_t limit = 50;

    /// `folder` is made (mode 0700) when it is missing, by the first `append`. It is refused when
    /// it is a link, another user's, or when others may write to it; so is the file when it is a
    /// link, another user's, or no regular file. `client` names the file and may be any text.
    /// An empty `folder` keeps nothing.
    AccountHistory(std::filesystem::path folder, std::string_view client,
                   platform::DiagnosticSink diagnostics);

    void append(const AccountTransition& transition) const noexcept;

    /// The last 50, oldest first. Lines that are damaged, or that hold a state or a cause of a
    /// later version, are left out. Empty where there is no history yet.
    std::vector<AccountTransition> read() const noexcept;

private:
    std::filesystem::path folder_;
    std::string name_;
    platform::DiagnosticSink diagnostics_;
};

}  // namespace tessera
