#pragma once

#include "Platform/Security/Authentication/Authenticator.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/BlockingWork.hpp"
#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <atomic>
#include <optional>
#include <string>

namespace commandline
{

/// Where the commands of the keychain get their secrets from: a descriptor that was named, the
/// terminal, or standard input. Any thread may ask, one at a time.
class Asking
{
public:
    Asking(const KeychainCommand& command, Interrupts& interrupts, BlockingWork& work)
        : command_(command), interrupts_(interrupts), work_(work)
    {}

    /// The value to keep: at a terminal one line, which is not shown, else all of standard input.
    platform::SecretBytes value() const;

    /// A secret that exists already: one line.
    platform::SecretString current(const std::string& name) const;
    /// A new one: asked for twice at a terminal, else one line of standard input.
    platform::SecretString fresh(const std::string& name) const;

    /// The passphrase of the key file, from the descriptor that was named; nothing without one.
    /// To be asked once, before standard input is read for anything else, for it may be that.
    std::optional<platform::SecretString> givenPassphrase() const;
    /// The same, asked for at the terminal; nothing without one.
    std::optional<platform::SecretString> passphrase() const;
    bool canGivePassphrase() const;
    /// The passcode that a protected item demands, from the descriptor that was named or from the
    /// terminal; nothing where neither is there. Ends when `ended` says so.
    std::optional<platform::SecretString> passcode(const std::string& reason,
                                                   const std::stop_token& ended) const;

    /// Shows the question and waits for the Enter key; false without a terminal.
    bool presence(const std::string& reason, const std::stop_token& ended) const;

    /// What there was no terminal for, and how to give it otherwise; nothing as long as everything
    /// could be asked. For whoever tells of the failure that followed from it.
    std::optional<Report> unasked() const;

    /// Asks for a word that only somebody who means it types. Throws `Failure` otherwise.
    void confirm(const std::string& question, const std::string& word) const;

private:
    platform::SecretString secretly(const std::string& question,
                                    const std::stop_token& ended = {}) const;
    platform::SecretString lineOfInput(const std::string& name) const;
    platform::SecretString lineOf(int descriptor, const std::string& name) const;

    enum class Lack
    {
        nothing,
        passphrase,
        passcode,
        presence,
    };

    const KeychainCommand& command_;
    mutable std::atomic<Lack> lack_ = Lack::nothing;
    Interrupts& interrupts_;
    BlockingWork& work_;
};

/// Puts the question of a protected item to whoever sits at the terminal.
class TerminalAuthenticator final : public platform::Authenticator
{
public:
    explicit TerminalAuthenticator(const Asking& asking) : asking_(asking) {}

    Answer authenticate(const Request& request) override;

    /// Presence and the passcode: whether the terminal is there shows when it is needed, so that
    /// items can be kept without one.
    bool offers(platform::AccessControlFlag demanded) const override;

private:
    const Asking& asking_;
};

}  // namespace commandline
