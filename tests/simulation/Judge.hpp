#pragma once

#include "Tessera/Model/AccountState.hpp"
#include "tests/simulation/AccountServer.hpp"
#include "tests/simulation/Items.hpp"
#include "tests/simulation/Trace.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace simulation
{

enum class CallKind
{
    launch,
    activate,
    signIn,
    signOut,
    refresh,
    forcedRefresh,
    deleteAccount,
    consent,
    newsletter,
    authenticate,
    deauthenticate,
    oneTimeCode,
    serverSignOutEnded,
    history
};

std::string_view nameOf(CallKind kind);

/// A call of a host's, from its start on.
struct CallRecord
{
    int host = -1;
    CallKind kind = CallKind::launch;
    /// Which of the host's changes of session was the latest when the call was made, itself
    /// included.
    int change = 0;
    /// Of the state when the call was made, and of those published since.
    std::set<const Text*> tokens = {};
    /// How often its end was told; once, in the end.
    int ends = 0;
    bool isAwaited = false;
    bool isCancelled = false;
    bool succeeded = false;
    /// The session token that a sign-in was given.
    const Text* issued = nullptr;
    bool written = false;
};

/// What was seen of one host's account, as far as later events are judged by it.
struct HostRecord
{
    int client = 0;
    bool isReleased = false;
    bool isBeingReleased = false;
    /// How often the host has begun or ended a session, and the latest call that did.
    int changes = 0;
    int latestChange = -1;
    bool latestHasEnded = true;

    std::vector<tessera::AccountState> states;
    /// Null where the published state has none.
    const Text* stateToken = nullptr;

    /// What the account last read, wrote or removed.
    std::optional<const Text*> known;
    /// What it has read since the latest change.
    std::set<const Text*> readSinceChange;
    bool readNothingSinceChange = false;
    bool removalFailed = false;
    /// What a sign-out could not remove, while nobody has told of anything newer.
    const Text* leftBehind = nullptr;
    bool isBeingTold = false;
    /// The stored information may be anybody's, for a reason.
    bool isInfoExcused = false;

    /// Signed-out states that are to come, and that may come.
    int owedSignedOut = 0;
    int possibleSignedOut = 0;
    /// Ends whatever session is stored, in a turn of its own that is still to come.
    bool isDeauthenticating = false;
    /// Deleted, or signed in with another user's information: these may be removed, and no other.
    std::set<const Text*> endedAlone;

    struct Received
    {
        const Text* info;
        const Text* bearer;
        int change;
        bool operator==(const Received&) const = default;
    };
    std::vector<Received> received;

    /// Since the last cause, and for the session of the latest of them.
    int infoRequests = 0;
    int infoRequestsAllowed = 0;
    const Text* infoBearer = nullptr;
    int announcements = 0;
    /// Written, or removed as far as that could be done.
    int tokenChanges = 0;
    /// When the stored token was read, and when the host called.
    std::vector<std::uint64_t> tokenReads;
    std::vector<std::uint64_t> calls;
};

/// Looks at everything that passes between the accounts and the world around them, and says what
/// must not be. It knows nothing of how an account works inside.
class Judge
{
public:
    explicit Judge(const Trace& trace) : trace_(trace) {}

    /// The first thing that was wrong.
    const std::optional<std::string>& complaint() const { return complaint_; }
    void complain(const std::string& what);

    /// Of the parts of the text, put together only then.
    template <class... Parts>
    void complainIf(bool isWrong, const Parts&... parts)
    {
        if (!isWrong)
            return;
        std::ostringstream text;
        (text << ... << parts);
        complain(text.str());
    }

    void setTime(std::uint64_t now) { now_ = now; }

    void hostBegins(int host, int client) { hosts_[host].client = client; }
    void hostIsReleased(int host) { of(host).isBeingReleased = true; }
    void hostEnds(int host) { of(host).isReleased = true; }
    /// It hears of a change.
    void hostIsTold(int host)
    {
        of(host).leftBehind = nullptr;
        of(host).isBeingTold = true;
    }
    int callBegins(int host, CallKind kind, const Text* given);
    bool hasEnded(int number) { return call(number).ends > 0; }
    bool isRunning(int host, CallKind kind) const;
    void callEnds(int call, bool succeeded, const std::string& how);
    void callIsAwaited(int number) { call(number).isAwaited = true; }
    void callCancelled(int number) { call(number).isCancelled = true; }
    void signInReturned(int call, const tessera::AccountState& state);

    void requested(Request& request);
    void answered(const Request& request, const Answer& answer);
    void itemCalled(const ItemCall& call);
    void announced(int host);
    void stateSeen(int host, const tessera::AccountState& state);

    /// Nothing waits to be run; `open` are the transfers of all hosts.
    void settled(const std::vector<std::shared_ptr<Transfer>>& open);
    /// Nothing happens any more at all.
    void atRest();
    /// The end of a seed: everything that could happen has happened.
    void ended(const AccountServer& server);

    const HostRecord& record(int host) const { return hosts_.at(host); }
    const Text* storedToken() const { return storedToken_; }
    void tokenStored(const Text* token) { storedToken_ = token; }
    void infoStored(int client, const Text* info) { storedInfos_[client] = info; }
    void infoDamaged(int client, const Text& info);
    /// By nobody that can be named.
    void tokenDamaged(const Text& text)
    {
        storedToken_ = &text;
        lastTokenChanger_ = -1;
    }

private:
    HostRecord& of(int host) { return hosts_.at(host); }
    CallRecord& call(int number) { return calls_.at(static_cast<std::size_t>(number)); }
    const CallRecord* latest(const HostRecord& host) const;
    bool isSigningIn(const HostRecord& host) const;
    void stimulated(HostRecord& host);

    void tokenRead(HostRecord& host, const ItemCall& call);
    void tokenWritten(HostRecord& host, const ItemCall& call, const Text* text);
    void tokenRemoved(HostRecord& host, const ItemCall& call);
    void infoWritten(const HostRecord& host, const Text* text);
    void judgeToken(HostRecord& host, const Text* before);
    void judgeProfile(const HostRecord& host, const tessera::AccountProfile& profile);
    void judgeSignedOut(HostRecord& host);
    void judgeBearer(HostRecord& host, const Request& request);
    int judgeOpen(const HostRecord& host, const Request& request);
    void judgeStored(int number, const HostRecord& host);
    void judgeStoredInfo(const HostRecord& host);

    const Trace& trace_;
    std::optional<std::string> complaint_;
    std::uint64_t now_ = 0;
    std::map<int, HostRecord> hosts_;
    std::vector<CallRecord> calls_;
    const Text* storedToken_ = nullptr;
    std::map<int, const Text*> storedInfos_;
    int lastTokenChanger_ = -1;
    /// Tokens that the server was asked to end, and those that it must be asked to end.
    std::set<const Text*> ended_;
    std::set<const Text*> toBeEnded_;
    std::set<const Text*> mayBeEnded_;
};

}  // namespace simulation
