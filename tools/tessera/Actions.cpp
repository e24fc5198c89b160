#include "tools/tessera/Actions.hpp"

#include "tools/tessera/Failure.hpp"
#include "tools/tessera/Host.hpp"
#include "tools/tessera/Input.hpp"
#include "tools/tessera/Terminal.hpp"
#include "tools/tessera/TokenFile.hpp"

namespace commandline
{
namespace
{

using platform::SecretString;
using tessera::AccountRemoteError;

/// One command on its way: what was asked, and what it is done with.
struct Run
{
    const Command& command;
    Interrupts& interrupts;
    Host host{command, interrupts};
    TokenFile tokenFile{command.tokenFile};

    bool hasTokenFile() const { return !command.tokenFile.empty(); }

    /// The token that the command is for. It is verified before it is sent anywhere, so that a
    /// token of one environment never reaches the server of another.
    TokenJWT token()
    {
        return host.verifiedToken(hasTokenFile() ? tokenFile.read()
                                                 : readTokenFromInput(interrupts));
    }

    void removeTokenFile()
    {
        if (hasTokenFile())
            tokenFile.remove();
    }
};

Result requestCode(Run& run)
{
    run.host.await(run.host.service().requestOneTimeCode(SecretString(run.command.email)));
    return {.verb = Verb::requestCode};
}

SecretString codeFor(Run& run)
{
    if (run.command.code)
        return *run.command.code;
    if (!canAsk())
        throw Failure({ExitCode::usage, "noCode",
                       "There is no terminal at which the code could be asked for.",
                       "Give the code with --code."});
    auto code = askSecretly("Code from the mail: ", run.interrupts);
    if (code.empty())
        throw Failure({ExitCode::declined, "noAnswer", "No code was given.",
                       "Run the command again and type the code from the mail."});
    return code;
}

/// Makes the service act for the account that has no address yet.
void authenticateAnonymous(Run& run)
{
    run.host.authenticate(run.host.verifiedToken(run.tokenFile.read()));
    if (!run.host.info().isAnonymous())
        throw Failure({ExitCode::usage, "notAnonymous",
                       "The account of the token file has an e-mail address already.",
                       "Leave out --attach to sign in to another account."});
}

/// A session that nobody can use any more is better ended; whether that succeeds is no news.
void endUnkept(Run& run, const TokenJWT& token)
{
    auto call = run.host.service().signOut(token.string);
    static_cast<void>(run.host.outcome(std::move(call)));
}

void keep(Run& run, const TokenJWT& token)
{
    try
    {
        run.tokenFile.write(token.string);
    }
    catch (const Failure&)
    {
        endUnkept(run, token);
        throw;
    }
}

/// Information that cannot be had or believed does not undo the sign-in: the token stays.
tessera::AccountInfo infoAfterSignIn(Run& run)
{
    try
    {
        return run.host.info();
    }
    catch (const std::exception&)
    {
        auto report = reportOf(std::current_exception());
        report.next =
            "You are signed in and the token is kept; try \"tessera info\" with this "
            "token file.";
        throw Failure(std::move(report));
    }
}

void signOutStranger(Run& run, const TokenJWT& token)
{
    run.removeTokenFile();
    endUnkept(run, token);
    throw Failure({ExitCode::verification, "otherUser",
                   "The server sent the account information of another user, and you were signed "
                   "out.",
                   "Sign in again."});
}

Result signIn(Run& run)
{
    run.tokenFile.checkWritable();
    if (run.command.attach)
        authenticateAnonymous(run);
    auto code = codeFor(run);
    const auto text = run.host.await(run.host.service().signIn(
        SecretString(run.command.email), std::move(code), run.command.attach));
    const auto token = run.host.verifiedToken(text);
    keep(run, token);

    run.host.authenticate(token);
    auto info = infoAfterSignIn(run);
    if (info.user != token.payload.user)
        signOutStranger(run, token);
    return {.verb = Verb::signIn, .account = std::move(info), .tokenFile = run.command.tokenFile};
}

tessera::AccountInfo infoOf(Run& run, const TokenJWT& token)
{
    run.host.authenticate(token);
    auto info = run.host.info();
    if (info.user != token.payload.user)
        throw Failure({ExitCode::verification, "otherUser",
                       "The server sent the account information of another user.",
                       "Sign in again with \"tessera sign-in\"."});
    return info;
}

Result info(Run& run)
{
    return {.verb = Verb::info, .account = infoOf(run, run.token())};
}

Result consent(Run& run)
{
    const auto token = run.token();
    run.host.authenticate(token);
    auto revision =
        run.command.revision ? *run.command.revision : infoOf(run, token).terms.currentRevision;
    run.host.await(
        run.host.service().consentToTerms(revision, tessera::AccountTerms().preferredLanguage()));
    return {.verb = Verb::consent, .revision = std::move(revision)};
}

Result newsletter(Run& run)
{
    run.host.authenticate(run.token());
    run.host.await(run.host.service().requestNewsletter());
    return {.verb = Verb::newsletter};
}

/// A session that has ended already is what was asked for.
bool sessionHadEnded(Run& run, const TokenJWT& token)
{
    try
    {
        run.host.await(run.host.service().signOut(token.string));
        return false;
    }
    catch (const AccountRemoteError& error)
    {
        if (!error.is(AccountRemoteError::KnownCode::unauthorized))
            throw;
        return true;
    }
}

Result signOut(Run& run)
{
    const auto token = run.token();
    const bool alreadyEnded = sessionHadEnded(run, token);
    run.removeTokenFile();
    return {
        .verb = Verb::signOut, .tokenFile = run.command.tokenFile, .alreadyEnded = alreadyEnded};
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
    const auto token = run.token();
    confirmDeletion(run);
    run.host.await(run.host.service().deleteAccount(token.string));
    run.removeTokenFile();
    return {.verb = Verb::delete_, .tokenFile = run.command.tokenFile};
}

}  // namespace

Result perform(const Command& command, Interrupts& interrupts)
{
    Run run{command, interrupts};
    switch (command.verb)
    {
        case Verb::requestCode:
            return requestCode(run);
        case Verb::signIn:
            return signIn(run);
        case Verb::info:
            return info(run);
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

}  // namespace commandline
