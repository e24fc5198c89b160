#include "Tessera/API/AccountService.hpp"

#include "NetTasks/SessionExtension.hpp"

namespace tessera
{

using platform::Awaitable;
using platform::SecretString;
using platform::URLRequest;

/// What the actor guards. Its functions run on the actor; each holds the state alive by itself.
struct AccountService::State
{
    AccountEnvironment environment;
    AccountClient client;
    std::shared_ptr<platform::URLSession> urlSession;
    std::optional<SecretString> token;

    AccountRequestBuilder requestBuilder() const { return requestBuilder(token); }

    AccountRequestBuilder requestBuilder(std::optional<SecretString> withToken) const
    {
        return AccountRequestBuilder(environment, client, "v2", std::move(withToken));
    }
};

namespace
{

/// Makes a request on the actor: from the state as it is when the call's turn comes.
template <class State>
using MakeRequest = std::function<URLRequest(const State&)>;

/// Builds first and looks for cancellation second, so that a request that cannot be built is told
/// as such. What came back is checked before it is returned.
template <class State>
Awaitable<SecretString> performed(std::shared_ptr<State> state, MakeRequest<State> makeRequest)
{
    auto request = makeRequest(*state);
    co_await platform::checkCancellation();
    auto task = nettasks::asyncDataTask(state->urlSession, std::move(request));
    auto answer = co_await task->resume();
    nettasks::check<AccountRemoteError>(answer.body, answer.response);
    co_return SecretString(std::move(answer.body));
}

template <class State>
Awaitable<void> performedWithoutAnswer(std::shared_ptr<State> state, MakeRequest<State> makeRequest)
{
    auto answer = performed<State>(std::move(state), std::move(makeRequest));
    co_await std::move(answer);
}

template <class State>
Awaitable<void> keepToken(std::shared_ptr<State> state, std::optional<SecretString> token)
{
    state->token = std::move(token);
    co_return;
}

}  // namespace

AccountService::AccountService(AccountEnvironment environment, AccountClient client,
                               std::shared_ptr<platform::URLSession> urlSession,
                               const platform::Executor& executor)
    : actor_(executor),
      state_(std::make_shared<State>(
          State{std::move(environment), std::move(client), std::move(urlSession), std::nullopt}))
{}

const AccountEnvironment& AccountService::environment() const noexcept
{
    return state_->environment;
}

const AccountClient& AccountService::client() const noexcept
{
    return state_->client;
}

const std::shared_ptr<platform::URLSession>& AccountService::urlSession() const noexcept
{
    return state_->urlSession;
}

Awaitable<std::optional<SecretString>> AccountService::token() const
{
    auto read = [](std::shared_ptr<State> state) -> Awaitable<std::optional<SecretString>>
    { co_return state->token; };
    return actor_.run(read(state_));
}

Awaitable<AccountRequestBuilder> AccountService::requestBuilder() const
{
    auto make = [](std::shared_ptr<State> state) -> Awaitable<AccountRequestBuilder>
    { co_return state->requestBuilder(); };
    return actor_.run(make(state_));
}

Awaitable<void> AccountService::authenticate(SecretString token)
{
    return actor_.run(keepToken<State>(state_, std::move(token)));
}

Awaitable<void> AccountService::deauthenticate()
{
    return actor_.run(keepToken<State>(state_, std::nullopt));
}

Awaitable<void> AccountService::requestOneTimeCode(SecretString email)
{
    auto make = [email = std::move(email)](const State& state)
    { return state.requestBuilder().oneTimeCodeRequest(email); };
    return actor_.run(performedWithoutAnswer<State>(state_, std::move(make)));
}

Awaitable<SecretString> AccountService::signIn(SecretString email, SecretString oneTimeCode,
                                               bool authenticated)
{
    auto make = [email = std::move(email), oneTimeCode = std::move(oneTimeCode),
                 authenticated](const State& state)
    { return state.requestBuilder().signInRequest(email, oneTimeCode, authenticated); };
    return actor_.run(performed<State>(state_, std::move(make)));
}

Awaitable<void> AccountService::signOut(SecretString token)
{
    auto make = [token = std::move(token)](const State& state)
    { return state.requestBuilder(token).signOutRequest(); };
    return actor_.run(performedWithoutAnswer<State>(state_, std::move(make)));
}

Awaitable<SecretString> AccountService::info()
{
    auto make = [](const State& state) { return state.requestBuilder().accountInfoRequest(); };
    return actor_.run(performed<State>(state_, std::move(make)));
}

Awaitable<void> AccountService::deleteAccount(SecretString token)
{
    auto make = [token = std::move(token)](const State& state)
    { return state.requestBuilder(token).deleteAccountRequest(); };
    return actor_.run(performedWithoutAnswer<State>(state_, std::move(make)));
}

Awaitable<void> AccountService::requestNewsletter()
{
    auto make = [](const State& state) { return state.requestBuilder().newsletterRequest(); };
    return actor_.run(performedWithoutAnswer<State>(state_, std::move(make)));
}

Awaitable<void> AccountService::consentToTerms(std::string revision, std::string language)
{
    auto make = [revision = std::move(revision), language = std::move(language)](const State& state)
    { return state.requestBuilder().consentRequest(revision, language); };
    return actor_.run(performedWithoutAnswer<State>(state_, std::move(make)));
}

}  // namespace tessera
