#pragma once

#include "Platform/Networking/CurlURLSession.hpp"
#include "Tessera/Session/Account.hpp"
#include "tools/tessera/Command.hpp"
#include "tools/tessera/Waiting.hpp"
#include "tools/tessera/keychain/KeychainHost.hpp"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace commandline
{

/// What makes this program a host of the framework: who it is, whom it talks to, which thread is
/// its main one, and the account that all of it is for.
///
/// There is one at a time: it sets the process-wide services. All calls are made from the main
/// thread and return when the answer is there; they throw what the account throws.
class Host
{
public:
    /// Throws `tools::EnvironmentFileError`, and `Failure` for a passphrase that cannot be read.
    Host(const Command& command, Interrupts& interrupts);
    /// Waits until what was done is on the disk.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    tessera::Account& account() { return *account_; }

    /// Reads the stored session. Returns why there is one that cannot be used; throws
    /// `AccountError::keychainAccess` when it could not be read.
    std::optional<Report> restore();

    /// Runs a call of the account.
    template <class T>
    T await(platform::Awaitable<T> call)
    {
        return outcome<T>(std::move(call)).get();
    }

    /// The same for a call whose failure is no failure of the command.
    template <class T>
    platform::Outcome<T> outcome(platform::Awaitable<T> call)
    {
        return outcomeOf<T>(loop_, interrupts_, "Waiting for " + serverName_, std::move(call));
    }

    /// Runs what happens on the main thread until `ended` holds or a signal came.
    void runUntil(const std::function<bool()>& ended);

    /// Waits for the server's half of a sign-out, but not for long. Returns whether the server has
    /// confirmed it; nothing when it did not answer in time. Ctrl-C does not end it: who pressed
    /// it before would leave a session behind that nobody uses.
    std::optional<bool> waitForServerSignOut();

    /// What the layers below told of since the last call.
    std::vector<platform::Diagnostic> diagnostics() { return log_->take(); }
    /// What there was no terminal for.
    std::optional<Report> unasked() const;

private:
    platform::Services services(const Command& command);
    std::optional<platform::SecretString> passphrase();
    void finishWriting();

    Interrupts& interrupts_;
    std::string serverName_;
    const std::shared_ptr<platform::RunLoop> loop_ = std::make_shared<platform::RunLoop>();
    std::shared_ptr<platform::CurlURLSession> session_;
    const std::shared_ptr<DiagnosticLog> log_ = std::make_shared<DiagnosticLog>();
    std::mutex passphraseMutex_;
    std::optional<platform::SecretString> passphrase_;
    std::atomic<bool> unasked_ = false;
    platform::Services before_;
    std::unique_ptr<tessera::Account> account_;
};

}  // namespace commandline
