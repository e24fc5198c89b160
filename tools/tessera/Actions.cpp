#include "tools/tessera/Actions.hpp"

#include "Tessera/Model/AccountError.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Host.hpp"
#include "tools/tessera/Input.hpp"
#include "tools/tessera/Watching.hpp"

namespace commandline
{
namespace
{

using platform::SecretString;
using tessera::AccountError;
using tessera::AccountState;

/// One command on its way: what was asked, and what it is done with.
struct Run
{
    const Command& command;
    Interrupts& interrupts;
    Host host{command, interrupts};

    tessera::Account& account() { return host.account(); }

    /// The stored session, which must be there: no command acts for nobody.
    void requireSession()
    {
        if (auto unusable = host.restore())
            throw Failure(*std::move(unusable));
        if (!account().state().token())
            throw AccountError(AccountError::accountRequired);
    }
};

Result requestCode(Run& run)
{
    run.host.await(run.account().requestOneTimeCode(SecretString(run.command.email)));
    return {.verb = Verb::requestCode};
}

/// Mails group the digits, and what is copied brings the blanks around it along.
SecretString withoutBlanks(const SecretString& text)
{
    SecretString rest;
    rest.reserve(text.size());
    for (const char& c : text.view())
        if (std::string_view(" \t\r\n\v\f").find(c) == std::string_view::npos)
            rest.append({&c, 1});
    return rest;
}

SecretString codeFor(Run& run)
{
    if (run.command.code)
        return withoutBlanks(*run.command.code);
    if (!canAsk())
        throw Failure({ExitCode::usage, "noCode",
                       "There is no terminal at which the code could be asked for.",
                       "Give the code with --code."});
    auto code = withoutBlanks(askSecretly("Code from the mail: ", run.interrupts));
    if (code.empty())
        throw Failure({ExitCode::declined, "noAnswer", "No code was given.",
                       "Run the command again and type the code from the mail."});
    return code;
}

/// What the server says about the account now.
tessera::AccountInfo currentInfo(Run& run)
{
    run.host.await(run.account().refresh(true));
    const auto* profile = run.account().state().get<tessera::AccountProfile>();
    // Another program signed out in this very moment.
    if (!profile)
        throw AccountError(AccountError::accountRequired);
    return profile->info();
}

/// Information that cannot be had or believed does not undo the sign-in.
tessera::AccountInfo infoAfterSignIn(Run& run)
{
    try
    {
        return currentInfo(run);
    }
    catch (const std::exception&)
    {
        auto report = reportOf(std::current_exception());
        report.next = "You are signed in; try \"tessera info\".";
        throw Failure(std::move(report));
    }
}

AccountState stateAfterSignIn(Run& run, SecretString code)
{
    try
    {
        return run.host.await(
            run.account().signIn(SecretString(run.command.email), std::move(code)));
    }
    catch (const std::exception&)
    {
        // A session that nobody can use is ended on the server.
        static_cast<void>(run.host.waitForServerSignOut());
        throw;
    }
}

Result signIn(Run& run)
{
    // First, because a code that was exchanged for a session which cannot be kept is lost. One that
    // is stored and cannot be used is replaced.
    static_cast<void>(run.host.restore());
    const auto state = stateAfterSignIn(run, codeFor(run));
    if (state.get<AccountState::SignedOut>())
    {
        static_cast<void>(run.host.waitForServerSignOut());
        throw Failure({ExitCode::verification, "otherUser",
                       "The server sent the account information of another user, and you were "
                       "signed out.",
                       "Sign in again."});
    }
    const auto* profile = state.get<tessera::AccountProfile>();
    return {.verb = Verb::signIn, .account = profile ? profile->info() : infoAfterSignIn(run)};
}

Result info(Run& run)
{
    run.requireSession();
    return {.verb = Verb::info, .account = currentInfo(run)};
}

Result status(Run& run)
{
    Result result{.verb = Verb::status};
    // Before the look at the session, which is a transition itself.
    if (run.command.history)
        result.history = run.host.await(run.account().history());
    static_cast<void>(run.host.restore());
    result.state = run.account().state();
    result.diagnostic = run.account().diagnostic();
    return result;
}

Result watch(Run& run)
{
    watch(run.host, run.command.json);
    return {.verb = Verb::watch};
}

Result refresh(Run& run)
{
    run.requireSession();
    static_cast<void>(currentInfo(run));
    return {.verb = Verb::refresh, .state = run.account().state()};
}

Result consent(Run& run)
{
    run.requireSession();
    auto revision =
        run.command.revision ? *run.command.revision : currentInfo(run).terms.currentRevision;
    run.host.await(
        run.account().consentToTerms(revision, tessera::AccountTerms().preferredLanguage()));
    // So that what is stored knows of it; a failure does not undo the consent.
    static_cast<void>(run.host.outcome(run.account().refresh(true)));
    return {.verb = Verb::consent, .revision = std::move(revision)};
}

Result newsletter(Run& run)
{
    run.requireSession();
    run.host.await(run.account().requestNewsletter());
    return {.verb = Verb::newsletter};
}

/// The account cannot fail to sign out, but the keychain can keep what it holds.
void requireRemoval(Run& run)
{
    const auto& problem = run.account().diagnostic();
    if (problem && problem->code == tessera::AccountDiagnosticCode::sessionNotRemoved)
        throw Failure({ExitCode::keychain, "sessionNotRemoved",
                       "The keychain did not let go of the session.",
                       "Let \"tessera keychain doctor\" look for the cause, then sign out again."});
}

Result signOut(Run& run)
{
    auto& account = run.account();
    Result result{.verb = Verb::signOut, .onServer = ServerSignOut::notNeeded};
    if (run.host.restore())
    {
        account.deauthenticate();
        run.host.runUntil([&]
                          { return account.state().get<AccountState::SignedOut>() != nullptr; });
        result.onServer = ServerSignOut::notAsked;
    }
    else if (account.state().token())
    {
        account.signOut();
        const auto confirmed = run.host.waitForServerSignOut();
        result.onServer = !confirmed   ? ServerSignOut::noAnswer
                          : *confirmed ? ServerSignOut::confirmed
                                       : ServerSignOut::unconfirmed;
    }
    requireRemoval(run);
    return result;
}

void confirmDeletion(Run& run)
{
    if (run.command.confirmed)
        return;
    if (!canAsk())
        throw Failure({ExitCode::usage, "notConfirmed",
                       "There is no terminal at which the deletion could be confirmed.",
                       "Confirm it with --yes."});
    const auto answer =
        ask("This deletes the account and everything in it for good.\n"
            "Type \"delete\" to go on: ",
            run.interrupts);
    if (answer.view() != "delete")
        throw Failure({ExitCode::declined, "declined", "Nothing was deleted.",
                       "To delete the account, run the command again and type \"delete\"."});
}

Result deleteAccount(Run& run)
{
    run.requireSession();
    confirmDeletion(run);
    run.host.await(run.account().deleteAccount());
    requireRemoval(run);
    return {.verb = Verb::delete_};
}

Result carryOut(Run& run)
{
    switch (run.command.verb)
    {
        case Verb::requestCode:
            return requestCode(run);
        case Verb::signIn:
            return signIn(run);
        case Verb::info:
            return info(run);
        case Verb::status:
            return status(run);
        case Verb::watch:
            return watch(run);
        case Verb::refresh:
            return refresh(run);
        case Verb::consent:
            return consent(run);
        case Verb::newsletter:
            return newsletter(run);
        case Verb::signOut:
            return signOut(run);
        case Verb::delete_:
            return deleteAccount(run);
    }
    throw Failure({ExitCode::internal, "internal", "The command is not known.", "See --help."});
}

/// The failure that is being handled, with what lay behind it.
Failure explained(Run& run)
{
    auto report = reportOf(std::current_exception());
    // Calls for a session end with it, whoever ended it.
    if (report.exitCode == ExitCode::interrupted && run.interrupts.signal() == 0)
        return Failure({ExitCode::signInNeeded, "sessionChanged",
                        "Another program signed in or out meanwhile.",
                        "See \"tessera status\"; to sign in again, ask for a new code."});
    const auto unasked = run.host.unasked();
    // More exact than what the layers below made of it.
    if (unasked && report.exitCode == ExitCode::keychain)
        return Failure(*unasked);
    report.diagnostics = run.host.diagnostics();
    return Failure(std::move(report));
}

}  // namespace

Result perform(const Command& command, Interrupts& interrupts)
{
    Run run{command, interrupts};
    try
    {
        auto result = carryOut(run);
        result.diagnostics = run.host.diagnostics();
        return result;
    }
    catch (...)
    {
        throw explained(run);
    }
}

}  // namespace commandline
