#include "tests/simulation/Judge.hpp"

#include <algorithm>
#include <array>

namespace simulation
{
namespace
{

using platform::KeychainStatus;
using tessera::AccountState;

/// A sign-in asks five times, a refresh once, and the retry of either four times more.
constexpr int afterRefresh = 1 + 4;
constexpr int afterSignIn = 5 + 4;

constexpr std::uint64_t second = 1'000'000'000;
/// Reads in a second that announcements cause, and those of one call of the host's.
constexpr std::size_t readsOfAnnouncements = 10;
constexpr std::size_t readsOfACall = 6;

const Text* tokenOf(const AccountState& state)
{
    const auto token = state.token();
    return token ? Texts::shared().find(token->view()) : nullptr;
}

std::string nameOf(const Text* text)
{
    return text ? text->name : "none";
}

bool endsASession(CallKind kind)
{
    return kind == CallKind::signOut || kind == CallKind::deauthenticate;
}

bool beginsASession(CallKind kind)
{
    return kind == CallKind::signIn || kind == CallKind::authenticate;
}

std::string describe(const AccountState& state)
{
    if (const auto* profile = state.get<tessera::AccountProfile>())
    {
        const auto* info = Texts::shared().find(profile->infoJWT.string.view());
        const bool isLocal = profile->source == tessera::AccountProfileSource::local;
        return "signedIn " + nameOf(tokenOf(state)) + " " + nameOf(info) +
               (isLocal ? " local" : " remote");
    }
    if (const auto* pending = state.get<tessera::AccountPendingProfile>())
        return "pending " + nameOf(tokenOf(state)) +
               (pending->infoErrorMessage ? " with a message" : "");
    if (state.get<AccountState::Failed>())
        return "failed";
    return state.get<AccountState::SignedOut>() ? "signedOut" : "loading";
}

}  // namespace

std::string_view nameOf(CallKind kind)
{
    constexpr std::array names{"launch",
                               "activation",
                               "signIn",
                               "signOut",
                               "refresh",
                               "refresh(force)",
                               "deleteAccount",
                               "consent",
                               "newsletter",
                               "authenticate",
                               "deauthenticate",
                               "oneTimeCode",
                               "serverSignOutEnded",
                               "history"};
    return names.at(static_cast<std::size_t>(kind));
}

void Judge::complain(const std::string& what)
{
    trace_("!!! ", what);
    if (!complaint_)
        complaint_ = what;
}

const CallRecord* Judge::latest(const HostRecord& host) const
{
    return host.latestChange < 0 ? nullptr
                                 : &calls_.at(static_cast<std::size_t>(host.latestChange));
}

/// Whether a sign-in may still be under way.
bool Judge::isSigningIn(const HostRecord& host) const
{
    const auto* change = latest(host);
    return change && beginsASession(change->kind) && !host.latestHasEnded;
}

/// Something has happened that may cause a request for the information, with its retries.
void Judge::stimulated(HostRecord& host)
{
    host.infoRequests = 0;
    host.infoRequestsAllowed = isSigningIn(host) ? afterSignIn + afterRefresh : afterRefresh;
}

int Judge::callBegins(int host, CallKind kind, const Text* given)
{
    auto& record = of(host);
    const auto number = static_cast<int>(calls_.size());
    const bool isChange = beginsASession(kind) || endsASession(kind);
    record.calls.push_back(now_);
    if (isChange)
    {
        record.latestHasEnded = false;
        record.readSinceChange.clear();
        record.readNothingSinceChange = false;
        // One that ends a session in a turn of its own still does so, before what comes now.
        record.possibleSignedOut = std::min(record.possibleSignedOut, 1);
        ++record.changes;
        record.latestChange = number;
    }
    if (kind == CallKind::signOut)
    {
        ++record.owedSignedOut;
        record.removalFailed = false;
        record.isDeauthenticating = false;
    }
    if (kind == CallKind::deauthenticate)
    {
        ++record.possibleSignedOut;
        record.isDeauthenticating = true;
    }
    calls_.push_back({.host = host, .kind = kind, .change = record.changes, .issued = given});
    if (record.stateToken)
        calls_.back().tokens.insert(record.stateToken);
    stimulated(record);
    return number;
}

bool Judge::isRunning(int host, CallKind kind) const
{
    return std::ranges::any_of(
        calls_, [&](const CallRecord& one)
        { return one.host == host && one.kind == kind && one.isAwaited && one.ends == 0; });
}

void Judge::callEnds(int number, bool succeeded, const std::string& how)
{
    auto& ended = call(number);
    trace_("  call ", number, " of host ", ended.host, " (", nameOf(ended.kind), ") ends: ", how);
    ended.succeeded = succeeded;
    complainIf(++ended.ends > 1, "call ", number, " ended twice");
    auto& host = of(ended.host);
    if (host.latestChange == number)
        host.latestHasEnded = true;
    if (ended.kind == CallKind::consent && succeeded)
    {
        stimulated(host);
        // The refresh that is under way is not the one that a consent causes.
        ++host.infoRequestsAllowed;
    }
    const bool needsToken = ended.kind == CallKind::consent || ended.kind == CallKind::newsletter ||
                            ended.kind == CallKind::deleteAccount;
    complainIf(needsToken && ended.tokens.empty() && succeeded, nameOf(ended.kind),
               " succeeded without a session");
}

void Judge::signInReturned(int number, const AccountState& state)
{
    const auto& ended = call(number);
    const auto* token = tokenOf(state);
    complainIf(token && token != ended.issued, "a sign-in returned the session ", nameOf(token),
               ", which is another's");
    complainIf(!ended.written, "a sign-in succeeded whose token was not written");
}

void Judge::requested(Request& request)
{
    auto& host = of(request.host);
    request.change = host.changes;
    trace_("  request: ", request.description());
    complainIf(request.operation == Operation::unknown || request.isBearerUnknown,
               "an unknown request: ", request.description());
    if (request.operation == Operation::signOut)
    {
        ended_.insert(request.bearer);
        complainIf(!mayBeEnded_.contains(request.bearer), "the server is asked to end ",
                   nameOf(request.bearer), ", which nobody has signed out");
        return;
    }
    complainIf(host.isReleased, "a released account sends: ", request.description());
    judgeBearer(host, request);
    if (request.operation != Operation::info)
        return;
    if (std::exchange(host.infoBearer, request.bearer) != request.bearer)
        host.infoRequests = 0;
    ++host.infoRequests;
    complainIf(host.infoRequests > host.infoRequestsAllowed, "request ", host.infoRequests,
               " for the information of one cause: ", request.description());
}

void Judge::judgeBearer(HostRecord& host, const Request& request)
{
    constexpr std::array<std::pair<Operation, CallKind>, 3> ofCalls{
        {{Operation::consent, CallKind::consent},
         {Operation::newsletter, CallKind::newsletter},
         {Operation::deleteAccount, CallKind::deleteAccount}}};
    bool isRight = true;
    for (const auto& pair : ofCalls)
        if (request.operation == pair.first)
            isRight = request.bearer &&
                      std::ranges::any_of(calls_,
                                          [&](const CallRecord& one)
                                          {
                                              return one.host == request.host &&
                                                     one.kind == pair.second && one.ends == 0 &&
                                                     one.tokens.contains(request.bearer);
                                          });
    if (request.operation == Operation::oneTimeCode)
        isRight = !request.bearer;
    if (request.operation == Operation::info)
        isRight = request.bearer != nullptr;
    if (request.operation == Operation::signIn && request.bearer)
        isRight = std::ranges::any_of(
            host.states,
            [&](const auto& state)
            {
                const auto* profile = state.template get<tessera::AccountProfile>();
                return profile && profile->info().isAnonymous() && tokenOf(state) == request.bearer;
            });
    complainIf(!isRight, "the wrong token: ", request.description());
}

void Judge::answered(const Request& request, const Answer& answer)
{
    if (answer.status != 200 && answer.status != 204)
        return;
    auto& host = of(request.host);
    const auto mayEnd = [&]
    {
        ++host.possibleSignedOut;
        mayBeEnded_.insert(request.bearer);
        host.endedAlone.insert(request.bearer);
    };
    if (request.operation == Operation::signIn && answer.text && request.call >= 0)
    {
        call(request.call).issued = answer.text;
        mayBeEnded_.insert(answer.text);
    }
    if (request.operation == Operation::info && answer.text)
    {
        host.received.push_back({answer.text, request.bearer, request.change});
        const bool isOthers = answer.text->isInfo() && answer.text->client == host.client &&
                              answer.text->user != request.bearer->user;
        if (isOthers && isSigningIn(host))
            mayEnd();
    }
    if (request.operation == Operation::deleteAccount)
        mayEnd();
}

void Judge::itemCalled(const ItemCall& made)
{
    constexpr std::array<std::string_view, 3> verbs{"reads", "writes", "removes"};
    constexpr std::array<std::string_view, 3> items{"Token", "Info", "another item"};
    const auto* text = Texts::shared().find(made.text);
    const auto verb = verbs.at(static_cast<std::size_t>(made.kind));
    trace_("  host ", made.host, " ", verb, " ", items.at(static_cast<std::size_t>(made.item)), " ",
           nameOf(text), ": ", static_cast<int>(made.status));
    auto& host = of(made.host);
    const bool isRead = made.kind == ItemCall::Kind::read;
    const bool isWrite = made.kind == ItemCall::Kind::write;
    // A read that was on its way has no effect.
    complainIf(host.isReleased && !isRead, "a released account ", verb, " an item");
    // Nothing else may keep the main thread waiting for the disk.
    const bool isEnding = host.owedSignedOut + host.possibleSignedOut > 0 || host.isBeingReleased;
    complainIf(made.isOnMain && !isEnding, "an item is used on the main thread");
    if (made.item == Item::token && isRead)
        tokenRead(host, made);
    else if (made.item == Item::token && isWrite)
        tokenWritten(host, made, text);
    else if (made.item == Item::token)
        tokenRemoved(host, made);
    if (made.item != Item::info)
        return;
    if (isWrite)
        infoWritten(host, text);
    const bool isDone =
        made.status == KeychainStatus::success || made.status == KeychainStatus::itemNotFound;
    if (!isDone)
        host.isInfoExcused = true;
    else if (!isRead)
        storedInfos_[host.client] = isWrite ? text : nullptr;
}

void Judge::tokenRead(HostRecord& host, const ItemCall& made)
{
    host.tokenReads.push_back(now_);
    const auto since = [&](const std::vector<std::uint64_t>& times, std::uint64_t span)
    {
        return static_cast<std::size_t>(
            std::ranges::count_if(times, [&](auto time) { return time + span > now_; }));
    };
    const auto calls = since(host.calls, 10 * second);
    complainIf(since(host.tokenReads, second) > readsOfAnnouncements + readsOfACall * (calls + 1),
               "the stored token is read more than ten times a second");

    const bool isMissing = made.status == KeychainStatus::itemNotFound;
    if (made.status != KeychainStatus::success && !isMissing)
        return;
    const auto* text = isMissing ? nullptr : Texts::shared().find(made.text);
    if (!host.known || *host.known != text)
        stimulated(host);
    host.known = text;
    if (isMissing)
        host.readNothingSinceChange = true;
    else
        host.readSinceChange.insert(text);
    const auto* change = latest(host);
    // The sign-out's own read tells which session the server is to end.
    if (change && change->kind == CallKind::signOut && !host.latestHasEnded && text)
    {
        mayBeEnded_.insert(text);
        if (text->isSession())
            toBeEnded_.insert(text);
    }
}

void Judge::tokenWritten(HostRecord& host, const ItemCall& made, const Text* text)
{
    const auto* change = latest(host);
    const bool isLatest = change && beginsASession(change->kind) && change->issued == text;
    complainIf(!isLatest, "the session ", nameOf(text), " is written after it was superseded");
    if (made.status == KeychainStatus::success)
    {
        lastTokenChanger_ = made.host;
        storedToken_ = text;
        host.known = text;
        for (auto& entry : hosts_)
            entry.second.leftBehind = nullptr;
        ++host.tokenChanges;
        if (isLatest)
            call(host.latestChange).written = true;
    }
}

void Judge::tokenRemoved(HostRecord& host, const ItemCall& made)
{
    // A program that shows no session may remove what its last sign-out could not.
    const bool isMadeGood = !host.stateToken && host.known == storedToken_;
    complainIf(host.owedSignedOut + host.possibleSignedOut <= 0 && !isMadeGood,
               "the stored token is removed, though nobody has signed out");
    const bool isOfAny = host.owedSignedOut > 0 || host.isDeauthenticating || isMadeGood;
    const auto* read = host.known.value_or(nullptr);
    complainIf(!isOfAny && read && !host.endedAlone.contains(read), "the session ", nameOf(read),
               " is removed, though another has ended");
    host.isDeauthenticating = false;
    ++host.tokenChanges;
    // What a sign-out reads and what it removes may be two sessions.
    if (made.status == KeychainStatus::success || made.status == KeychainStatus::itemNotFound)
    {
        lastTokenChanger_ = made.host;
        storedToken_ = nullptr;
        host.known = nullptr;
    }
    else
    {
        host.removalFailed = true;
        // What it has not shown, or is being told of, may be another program's new one: followed.
        if (!host.isBeingTold && (!host.known || host.stateToken == storedToken_))
            host.leftBehind = storedToken_;
    }
}

void Judge::infoWritten(const HostRecord& host, const Text* text)
{
    const auto* change = latest(host);
    const bool hasSession =
        host.stateToken || isSigningIn(host) || !change || !endsASession(change->kind);
    complainIf(!hasSession, "information is written after the session was ended");
    complainIf(!text || !text->isInfo() || text->client != host.client,
               "information is written that is not this client's: ", nameOf(text));
}

void Judge::announced(int number)
{
    trace_("  host ", number, " announces");
    auto& host = of(number);
    complainIf(host.isReleased, "a released account announces");
    // Each write and each removal is announced once, and behind it.
    complainIf(++host.announcements > host.tokenChanges,
               "a change of the token is announced that has not been made");
}

void Judge::stateSeen(int number, const AccountState& state)
{
    auto& host = of(number);
    trace_("  host ", number, " is ", describe(state));
    complainIf(host.isReleased, "a released account publishes");
    const auto* before = host.stateToken;
    host.states.push_back(state);
    host.stateToken = tokenOf(state);
    if (host.states.size() == 1)
        return;
    complainIf(state.token() && !host.stateToken, "the state holds a token that nobody has issued");
    if (host.stateToken)
    {
        judgeToken(host, before);
        for (auto& one : calls_)
            if (one.host == number && one.ends == 0)
                one.tokens.insert(host.stateToken);
    }
    if (const auto* profile = state.get<tessera::AccountProfile>())
        judgeProfile(host, *profile);
    if (state.get<AccountState::SignedOut>())
        judgeSignedOut(host);
}

/// A session is published by the work of the latest generation alone: it is the one that was there,
/// the one of the latest sign-in, or one that was read since.
void Judge::judgeToken(HostRecord& host, const Text* before)
{
    const auto* token = host.stateToken;
    const auto* change = latest(host);
    const bool isAdopted = change && beginsASession(change->kind) && change->issued == token;
    complainIf(
        isAdopted && !change->written && token != before && !host.readSinceChange.contains(token),
        "the session ", nameOf(token), " is published and was not written");
    const bool isFollowed = host.readSinceChange.contains(token);
    complainIf(token != before && !isAdopted && !isFollowed, "the session ", nameOf(token),
               " is published after it was superseded");
    complainIf(token != before && token == host.leftBehind, "the session ", nameOf(token),
               " was signed out, and has come back");
    if (change && change->kind == CallKind::authenticate && isAdopted)
        host.latestHasEnded = true;
}

void Judge::judgeProfile(const HostRecord& host, const tessera::AccountProfile& profile)
{
    const auto* info = Texts::shared().find(profile.infoJWT.string.view());
    if (!info || !info->isInfo() || info->client != host.client)
    {
        complain("a profile has information that is not this client's: " + nameOf(info));
        return;
    }
    complainIf(info->user != host.stateToken->user,
               "a profile has the information of another user: ", nameOf(info));
    const HostRecord::Received received{info, host.stateToken, host.changes};
    complainIf(profile.source == tessera::AccountProfileSource::remote &&
                   std::ranges::find(host.received, received) == host.received.end(),
               "a profile has information that this session has not received: ", info->name);
}

void Judge::judgeSignedOut(HostRecord& host)
{
    if (host.owedSignedOut > 0)
        --host.owedSignedOut;
    else if (host.possibleSignedOut > 0)
        --host.possibleSignedOut;
    else if (!host.readNothingSinceChange)
        complain("signed out, though nobody has signed out and the token was not missing");
}

void Judge::settled(const std::vector<std::shared_ptr<Transfer>>& open)
{
    for (auto& [number, host] : hosts_)
    {
        int infoRequests = 0;
        for (const auto& transfer : open)
            if (transfer->request().host == number && !transfer->isCancelled())
                infoRequests += judgeOpen(host, transfer->request());
        complainIf(infoRequests > 1, "two requests for the information at the same time");
        if (host.isReleased)
            continue;
        host.isBeingTold = false;
        complainIf(host.owedSignedOut > 0, "a sign-out of host ", number, " was not published");
        judgeStored(number, host);
        judgeStoredInfo(host);
    }
}

/// Returns how many requests for the information it is.
int Judge::judgeOpen(const HostRecord& host, const Request& request)
{
    complainIf(host.isReleased && request.operation != Operation::signOut,
               "a released account still waits: ", request.description());
    if (request.operation != Operation::info)
        return 0;
    const bool isOfSignIn = isSigningIn(host) && latest(host)->issued == request.bearer;
    complainIf(request.bearer != host.stateToken && !isOfSignIn,
               "a request of an older session goes on: ", request.description());
    return 1;
}

void Judge::judgeStored(int number, const HostRecord& host)
{
    const auto* change = latest(host);
    if (lastTokenChanger_ != number || isSigningIn(host) || !change)
        return;
    // A sign-in that was superseded behind its write is followed like another program's.
    const bool isOwn = !storedToken_ || change->issued == storedToken_;
    complainIf(host.stateToken && host.stateToken != storedToken_ && isOwn && change->ends > 0 &&
                   (change->succeeded || storedToken_ == nullptr),
               "the session ", nameOf(host.stateToken), " is published and not stored");
    const bool isSignedOut =
        !host.states.empty() && host.states.back().get<AccountState::SignedOut>();
    complainIf(isSignedOut && endsASession(change->kind) && storedToken_ && !host.removalFailed,
               "signed out, and the session ", nameOf(storedToken_), " is stored");
}

/// What a restored session was read with, and does not belong to it, is removed.
void Judge::judgeStoredInfo(const HostRecord& host)
{
    const auto* pending =
        host.states.empty() ? nullptr : host.states.back().get<tessera::AccountPendingProfile>();
    if (!pending || pending->infoErrorMessage || host.changes > 0 || host.isInfoExcused)
        return;
    const auto found = storedInfos_.find(host.client);
    const auto* info = found == storedInfos_.end() ? nullptr : found->second;
    complainIf(info && (!info->isInfo() || info->user != host.stateToken->user),
               "information that does not belong to the session stays stored: ", nameOf(info));
}

void Judge::infoDamaged(int client, const Text& info)
{
    infoStored(client, &info);
    for (auto& [number, host] : hosts_)
        if (host.client == client)
            host.isInfoExcused = true;
}

void Judge::atRest()
{
    for (auto& [number, host] : hosts_)
    {
        const auto* change = latest(host);
        if (change && change->kind != CallKind::signIn)
            host.latestHasEnded = true;
    }
}

void Judge::ended(const AccountServer& server)
{
    for (std::size_t number = 0; number < calls_.size(); ++number)
    {
        const auto& one = calls_[number];
        complainIf(one.isAwaited && one.ends != 1, "call ", number, " (", nameOf(one.kind),
                   ") has not ended");
        // Whoever was given a session keeps it or ends it.
        const bool isLost = one.kind == CallKind::signIn && one.issued && one.issued->isSession() &&
                            !one.written && server.isAlive(*one.issued) &&
                            !hosts_.at(one.host).isReleased && !ended_.contains(one.issued);
        complainIf(isLost, "the session ", nameOf(one.issued), " was received and dropped");
    }
    for (const auto* token : toBeEnded_)
        complainIf(!ended_.contains(token), "the server is not asked to end ", token->name,
                   ", though it was signed out");
}

}  // namespace simulation
