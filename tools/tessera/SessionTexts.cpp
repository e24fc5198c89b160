#include "tools/tessera/SessionTexts.hpp"

namespace commandline
{

using tessera::AccountStateKind;
using tessera::AccountTransitionCause;

AccountStateKind kindOf(const tessera::AccountState& state)
{
    // The cases of both stand in the same order.
    return static_cast<AccountStateKind>(state.value().index());
}

std::string words(AccountStateKind kind)
{
    switch (kind)
    {
        case AccountStateKind::loading:
            return "loading";
        case AccountStateKind::failed:
            return "failed";
        case AccountStateKind::pending:
            return "pending";
        case AccountStateKind::signedIn:
            return "signed in";
        case AccountStateKind::signedOut:
            return "signed out";
    }
    return "";
}

Style styleOf(AccountStateKind kind)
{
    switch (kind)
    {
        case AccountStateKind::signedIn:
            return Style::good;
        case AccountStateKind::pending:
            return Style::warning;
        case AccountStateKind::failed:
            return Style::error;
        case AccountStateKind::loading:
        case AccountStateKind::signedOut:
            break;
    }
    return Style::label;
}

std::string sentence(AccountTransitionCause cause)
{
    switch (cause)
    {
        case AccountTransitionCause::restored:
            return "The stored session was read.";
        case AccountTransitionCause::noStoredSession:
            return "There was no stored session.";
        case AccountTransitionCause::storedInfoRejected:
            return "The stored account information was damaged or another user's.";
        case AccountTransitionCause::signedIn:
            return "The user signed in.";
        case AccountTransitionCause::signedInWithoutInfo:
            return "The user signed in, but the account information could not be loaded.";
        case AccountTransitionCause::signInCancelled:
            return "A sign-in was cancelled when its session was stored already.";
        case AccountTransitionCause::otherUsersInfo:
            return "The server sent another user's account information.";
        case AccountTransitionCause::refreshed:
            return "The account information was loaded anew.";
        case AccountTransitionCause::refreshFailed:
            return "The account information could not be loaded.";
        case AccountTransitionCause::refreshRefused:
            return "The server refused the session: it has ended there.";
        case AccountTransitionCause::signedOut:
            return "The user signed out.";
        case AccountTransitionCause::deauthenticated:
            return "The session was ended here, without telling the server.";
        case AccountTransitionCause::deleted:
            return "The account was deleted.";
        case AccountTransitionCause::otherProgramSignedIn:
            return "Another program of the user signed in.";
        case AccountTransitionCause::otherProgramSignedOut:
            return "Another program of the user signed out.";
    }
    return "";
}

}  // namespace commandline
