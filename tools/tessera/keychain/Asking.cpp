#include "tools/tessera/keychain/Asking.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Security/Keychain/KeychainItem.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/Input.hpp"

#include <unistd.h>

#include <system_error>

namespace commandline
{
namespace
{

using platform::SecretBytes;
using platform::SecretString;

[[noreturn]] void failUnanswered(const std::string& name)
{
    throw Failure({ExitCode::declined, "noAnswer", "No " + name + " was given.",
                   "Run the command again and give one."});
}

std::string lineOfReason(const std::string& reason)
{
    return reason.empty() ? "" : printable(reason) + "\n";
}

}  // namespace

SecretString Asking::secretly(const std::string& question, const std::stop_token& ended) const
{
    const BlockingWork::Question asking(work_);
    return askSecretly(question, interrupts_, ended);
}

SecretString Asking::lineOf(int descriptor, const std::string& name) const
{
    try
    {
        auto line = readLineFrom(descriptor, interrupts_);
        if (line && !line->empty())
            return *std::move(line);
    }
    catch (const std::system_error&)
    {
        throw Failure(
            {ExitCode::usage, "unreadableDescriptor",
             "The " + name + " cannot be read from descriptor " + std::to_string(descriptor) + ".",
             "Open it in the shell, like \"3< file\"."});
    }
    failUnanswered(name);
}

SecretString Asking::lineOfInput(const std::string& name) const
{
    if (isTerminal(STDIN_FILENO))
        throw Failure({ExitCode::usage, "noTerminal",
                       "The " + name + " cannot be asked for, since errors go elsewhere.",
                       "Leave standard error at the terminal, or pipe the " + name + " in."});
    return lineOf(STDIN_FILENO, name);
}

SecretBytes Asking::value() const
{
    if (canAsk())
    {
        const auto line = secretly("Value: ");
        return SecretBytes(line.bytes());
    }
    if (isTerminal(STDIN_FILENO))
        return SecretBytes(lineOfInput("value").bytes());
    const auto text = readInput(platform::keychainLimits::value, interrupts_);
    if (text.size() > platform::keychainLimits::value)
        throw Failure({ExitCode::usage, "valueTooLong", "The value is longer than 4 MiB.",
                       "Keep it in a file, and its key in the keychain."});
    return SecretBytes(text.bytes());
}

SecretString Asking::current(const std::string& name) const
{
    if (!canAsk())
        return lineOfInput(name);
    auto line = secretly("Current " + name + ": ");
    if (line.empty())
        failUnanswered(name);
    return line;
}

SecretString Asking::fresh(const std::string& name) const
{
    if (!canAsk())
        return lineOfInput(name);
    auto first = secretly("New " + name + ": ");
    if (first.empty())
        failUnanswered(name);
    if (first != secretly("The same again: "))
        throw Failure({ExitCode::declined, "notTheSame", "The two were not the same.",
                       "Run the command again; nothing has changed."});
    return first;
}

std::optional<SecretString> Asking::givenPassphrase() const
{
    if (!command_.passphraseDescriptor)
        return std::nullopt;
    return lineOf(*command_.passphraseDescriptor, "passphrase");
}

std::optional<SecretString> Asking::passphrase() const
{
    if (!canAsk())
    {
        lack_ = Lack::passphrase;
        return std::nullopt;
    }
    return secretly("Passphrase of the keychain: ");
}

bool Asking::canGivePassphrase() const
{
    return command_.passphraseDescriptor || canAsk();
}

std::optional<SecretString> Asking::passcode(const std::string& reason,
                                             const std::stop_token& ended) const
{
    if (command_.passcodeDescriptor)
        return lineOf(*command_.passcodeDescriptor, "passcode");
    if (!canAsk())
    {
        lack_ = Lack::passcode;
        return std::nullopt;
    }
    return secretly(lineOfReason(reason) + "Passcode: ", ended);
}

bool Asking::presence(const std::string& reason, const std::stop_token& ended) const
{
    if (!canAsk())
    {
        lack_ = Lack::presence;
        return false;
    }
    const BlockingWork::Question asking(work_);
    ask(lineOfReason(reason) + "Press Enter to release the value, Ctrl-C to keep it: ", interrupts_,
        ended);
    return true;
}

std::optional<Report> Asking::unasked() const
{
    switch (lack_)
    {
        case Lack::nothing:
            break;
        case Lack::passphrase:
            return Report{ExitCode::keychain, "KeychainError.couldNotAccessKeychain",
                          "The keychain is locked: its passphrase was not given.",
                          "Give it with --passphrase-fd N, or run this at a terminal."};
        case Lack::passcode:
            return Report{ExitCode::usage, "noTerminal",
                          "There is no terminal at which to ask for the passcode.",
                          "Give it with --passcode-fd N, or run this at a terminal."};
        case Lack::presence:
            return Report{ExitCode::usage, "noTerminal",
                          "There is no terminal at which the user could agree.",
                          "Run this at a terminal."};
    }
    return std::nullopt;
}

void Asking::confirm(const std::string& question, const std::string& word) const
{
    if (command_.confirmed)
        return;
    if (!canAsk())
        throw Failure({ExitCode::usage, "notConfirmed",
                       "There is no terminal at which this could be confirmed.",
                       "Confirm it with --yes."});
    const BlockingWork::Question asking(work_);
    const auto answer = ask(question + "\nType \"" + word + "\" to go on: ", interrupts_);
    if (answer.view() != word)
        throw Failure({ExitCode::declined, "declined", "Nothing was removed.",
                       "To do it, run the command again and type \"" + word + "\"."});
}

TerminalAuthenticator::Answer TerminalAuthenticator::authenticate(const Request& request)
{
    using enum platform::AccessControlFlag;
    try
    {
        if (request.demanded == userPresence)
            return {asking_.presence(request.reason, request.ended) ? Outcome::confirmed
                                                                    : Outcome::unavailable,
                    {}};
        if (request.demanded != devicePasscode)
            return {};
        auto passcode = asking_.passcode(request.reason, request.ended);
        if (!passcode)
            return {};
        if (passcode->empty())
            return {Outcome::cancelled, {}};
        return {Outcome::confirmed, *std::move(passcode)};
    }
    catch (const std::exception&)
    {
        // Interrupted, taken back, or the input ended: nobody agreed.
        return {Outcome::cancelled, {}};
    }
}

bool TerminalAuthenticator::offers(platform::AccessControlFlag demanded) const
{
    using enum platform::AccessControlFlag;
    return demanded == userPresence || demanded == devicePasscode;
}

}  // namespace commandline
