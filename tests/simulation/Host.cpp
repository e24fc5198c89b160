#include "tests/simulation/Host.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "tests/simulation/Items.hpp"

#include <algorithm>
#include <ranges>

namespace simulation
{
namespace
{

using platform::SecretString;
using tessera::AccountState;

tessera::AccountClient clientOf(int client)
{
    tessera::AccountClient made;
    made.identifier = clientIdentifier(client);
    made.localizedKeychainIdentifier = clientKeychainIdentifier(client);
    made.version = "1.0";
    made.device.model = "Bench 1";
    return made;
}

std::string howItEnded(const std::exception_ptr& error)
{
    if (!error)
        return "well";
    try
    {
        std::rethrow_exception(error);
    }
    catch (const std::exception& caught)
    {
        return caught.what();
    }
}

}  // namespace

Host::Host(int number, Program program, platform::Services services,
           std::shared_ptr<WatchedItems> items, Judge& judge, AccountServer& server)
    : number_(number),
      program_(std::move(program)),
      items_(std::move(items)),
      judge_(judge),
      server_(server)
{
    services.background = platform::executorOf(program_.background);
    services.storage = platform::executorOf(program_.storage);
    services.mainActor = program_.main;
    judge_.hostBegins(number_, program_.client);
    program_.main->runInside(
        [&]
        {
            account_ = std::make_unique<tessera::Account>(environment(), clientOf(program_.client),
                                                          std::move(services));
            subscribe();
        });
}

Host::~Host()
{
    if (account_)
        release();
}

void Host::subscribe()
{
    // First, so that it hears of a state before others can change it.
    witness_ = account_->statePublisher().subscribe([this](const AccountState& state)
                                                    { judge_.stateSeen(number_, state); });
    meddlers_ = {
        account_->statePublisher().subscribe([this](const AccountState&) { actFromHandler(); }),
        account_->newsletterStatusPublisher().subscribe([this](auto) { actFromHandler(); }),
        account_->diagnosticPublisher().subscribe([this](const auto&) { actFromHandler(); })};
    tokens_ = account_->token().subscribe(
        [this](const std::optional<SecretString>& token)
        {
            heardTokens_.push_back(token ? std::optional(std::string(token->view()))
                                         : std::nullopt);
        });
    addSubscriber();
}

void Host::addSubscriber()
{
    auto& added = subscribers_.emplace_back();
    added.subscription = account_->statePublisher().subscribe([&added](const AccountState& state)
                                                              { added.heard.push_back(state); });
}

void Host::actFromHandler()
{
    if (std::exchange(joinsFromHandler_, false))
    {
        subscribers_.pop_front();
        addSubscriber();
        addSubscriber();
    }
    if (const auto wish = std::exchange(fromHandler_, std::nullopt))
    {
        soak::Random random(wish->second);
        callNow(wish->first, random);
    }
    if (std::exchange(releasesFromHandler_, false) && account_)
        letGo();
}

template <class T>
void Host::await(int call, platform::Awaitable<T> work)
{
    auto end = [this, call](platform::Outcome<T> outcome)
    {
        running_.erase(call);
        judge_.callEnds(call, outcome.succeeded(), howItEnded(outcome.error()));
        if constexpr (std::is_same_v<T, AccountState>)
            if (outcome.succeeded())
                judge_.signInReturned(call, std::move(outcome).get());
    };
    judge_.callIsAwaited(call);
    auto task =
        platform::start<T>(platform::executorOf(program_.main), std::move(work), std::move(end));
    if (!judge_.hasEnded(call))
        running_.emplace(call, std::move(task));
}

void Host::callNow(CallKind kind, soak::Random& random)
{
    const int user = static_cast<int>(random.below(userCount));
    const Text* given = nullptr;
    if (kind == CallKind::authenticate)
        given = tokenToGive(random, user);
    const int number = judge_.callBegins(number_, kind, given);
    auto& account = *account_;
    switch (kind)
    {
        case CallKind::launch:
            account.applicationWillFinishLaunching();
            break;
        case CallKind::activate:
            account.applicationDidBecomeActive();
            break;
        case CallKind::signOut:
            account.signOut();
            break;
        case CallKind::authenticate:
            account.authenticate(SecretString(given->text));
            return;
        case CallKind::deauthenticate:
            account.deauthenticate();
            return;
        case CallKind::signIn:
            return await(number, account.signIn(SecretString(emailOf(user)),
                                                SecretString("code-" + std::to_string(number))));
        case CallKind::refresh:
            return await(number, account.refresh(false));
        case CallKind::forcedRefresh:
            return await(number, account.refresh(true));
        case CallKind::deleteAccount:
            return await(number, account.deleteAccount());
        case CallKind::consent:
            return await(number, account.consentToTerms("1", "en"));
        case CallKind::newsletter:
            return await(number, account.requestNewsletter());
        case CallKind::oneTimeCode:
            return await(number, account.requestOneTimeCode(SecretString(emailOf(user))));
        case CallKind::serverSignOutEnded:
            return await(number, account.serverSignOutEnded());
        case CallKind::history:
            return await(number, account.history());
    }
    judge_.callEnds(number, true, "well");
}

/// Mostly a session that was begun elsewhere; sometimes one that is used already, or none.
const Text* Host::tokenToGive(soak::Random& random, int user)
{
    const auto& texts = Texts::shared();
    if (random.oneIn(8))
        return random.oneIn(2) ? &texts.damaged() : &texts.foreignSession();
    if (random.oneIn(8) && judge_.record(number_).stateToken)
        return judge_.record(number_).stateToken;
    const auto* token = server_.beginSession(user);
    return token ? token : &texts.session(user, 0);
}

std::vector<int> Host::running() const
{
    const auto calls = std::views::keys(running_);
    return {calls.begin(), calls.end()};
}

void Host::cancel(int call)
{
    judge_.callCancelled(call);
    running_.at(call).cancel();
}

void Host::release()
{
    program_.main->runInside([&] { letGo(); });
}

void Host::letGo()
{
    judge_.hostIsReleased(number_);
    account_.reset();
    judge_.hostEnds(number_);
}

void Host::judgeNewsletter()
{
    using Status = tessera::Account::NewsletterStatus;
    judge_.complainIf(account_ && account_->newsletterStatus() == Status::submitting &&
                          !judge_.isRunning(number_, CallKind::newsletter),
                      "the newsletter of host ", number_, " is being submitted by nobody");
}

/// What a subscriber has heard is the end of what the witness has heard, or a part of it once it
/// has left. Those who come after the handler that lets go of the account miss the last state.
void Host::judgeSubscribers()
{
    const auto& states = judge_.record(number_).states;
    if (states.size() == judgedStates_)
        return;
    judgedStates_ = states.size();
    const auto isEndOf = [](const auto& heard, const auto& all, auto isSame)
    {
        return heard.size() <= std::ranges::size(all) &&
               std::equal(heard.rbegin(), heard.rend(), std::ranges::rbegin(all), isSame);
    };
    const auto hasHeard = [&](const auto& heard, auto isSame)
    {
        return isEndOf(heard, states, isSame) ||
               (isReleased() &&
                isEndOf(heard, std::views::take(states, states.size() - 1), isSame));
    };
    for (const auto& subscriber : subscribers_)
        judge_.complainIf(subscriber.heard.empty() || !hasHeard(subscriber.heard, std::equal_to()),
                          "a subscriber has not heard every state once and in order");
    const auto isTokenOf = [](const auto& heard, const AccountState& state)
    {
        const auto token = state.token();
        return heard.has_value() == token.has_value() && (!token || *heard == token->view());
    };
    judge_.complainIf(heardTokens_.size() + (isReleased() ? 1 : 0) < states.size() ||
                          !hasHeard(heardTokens_, isTokenOf),
                      "a subscriber of the token has not heard every state");
    judge_.complainIf(account_ && !(account_->state() == states.back()),
                      "the last published state is not the state");
}

bool Host::judgeSession(const MemoryItemStore& stored)
{
    const auto& record = judge_.record(number_);
    const auto* token = storedText(stored, tokenIdentity());
    const auto& state = record.states.back();
    if (!token)
    {
        judge_.complainIf(!state.get<AccountState::SignedOut>(), "nothing is stored, and host ",
                          number_, " is not signed out");
        return false;
    }
    // A session that could not be removed is not taken up again by the one who signed it out.
    if (state.get<AccountState::SignedOut>() && record.removalFailed)
        return false;
    if (!token->isSession())
    {
        judge_.complainIf(state.get<AccountState::SignedOut>(), "a damaged token counts as none");
        return false;
    }
    judge_.complainIf(record.stateToken != token, "the session ", token->name,
                      " is stored, and host ", number_, " does not have it");
    return true;
}

void Host::judgeEnd(const MemoryItemStore& stored, const AccountServer& server)
{
    const auto* token = storedText(stored, tokenIdentity());
    if (!judgeSession(stored) || !server.isAlive(*token))
        return;
    const auto& info = server.infoFor(*token, program_.client);
    const auto* profile = judge_.record(number_).states.back().get<tessera::AccountProfile>();
    if (!profile || profile->infoJWT.string.view() != info.text)
        judge_.complain("the last refresh has not brought the information");
    else if (storedText(stored, infoIdentity(program_.client)) != &info)
        judge_.complain("the information is published and not stored");
}

}  // namespace simulation
