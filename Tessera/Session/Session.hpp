#pragma once

#include "Platform/Concurrency/Task.hpp"
#include "Platform/Observation/CurrentValueSubject.hpp"
#include "Tessera/API/AccountService.hpp"
#include "Tessera/Session/Account.hpp"
#include "Tessera/Session/AccountHistory.hpp"
#include "Tessera/Session/EndableURLSession.hpp"
#include "Tessera/Session/SessionMachine.hpp"
#include "Tessera/Session/SessionStore.hpp"
#include "Tessera/Session/TaskSlot.hpp"
#include "Tessera/Session/TokenAnnouncement.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"

#include <cstdint>
#include <functional>
#include <list>

namespace tessera
{

/// What an `Account` keeps and does. Its coroutines hold it, so that it may outlive the account by
/// a little: `release` ends its effects, and each coroutine looks after every wait whether its
/// generation still stands (`requireCurrent`).
///
/// Everything happens on the main actor, but for reading and writing the keychain and the history,
/// which happens on the services' storage executor.
class Account::Session : public std::enable_shared_from_this<Account::Session>
{
public:
    using Self = std::shared_ptr<Session>;
    template <class T>
    using Awaitable = platform::Awaitable<T>;

    Session(AccountEnvironment environment, AccountClient client, platform::Services services);

    /// The second half of construction: begins to follow the own state and other programs.
    void begin();
    void release();

    /// Stops the process when the caller is not on the main thread.
    void requireMain() const;

    /// Which calls a new generation ends.
    enum class Belongs
    {
        toSession,
        toNobody,
        beginsOne
    };
    template <class T>
    using Work = std::function<Awaitable<T>(Generation)>;

    /// A call of the host, made now and perhaps awaited later: carried over to the main actor, and
    /// ended with the account and with the generation that it was made in.
    template <class T>
    Awaitable<T> operation(Belongs belongs, Work<T> work);

    Awaitable<void> requestOneTimeCode(platform::SecretString email);
    Awaitable<AccountState> signIn(platform::SecretString email, platform::SecretString code);
    Awaitable<void> deleteAccount();
    Awaitable<void> refresh(bool force);
    Awaitable<void> consentToTerms(std::string revision, std::string language);
    Awaitable<void> requestNewsletter();
    Awaitable<bool> serverSignOutEnded() const;
    Awaitable<std::vector<AccountTransition>> history();

    void launch();
    void activate();
    void signOut(AccountTransitionCause cause);
    /// Ends the session of this token, and leaves alone what another program has stored since.
    void signOutOf(const platform::SecretString& token, AccountTransitionCause cause);
    void authenticate(platform::SecretString token);
    void deauthenticate();

    const AccountEnvironment environment;
    const AccountClient client;
    /// Not held, nor is it by `services`: work that waits in its queue when it ends holds this.
    const std::weak_ptr<platform::MainActor> mainActor;
    const platform::Services services;
    SessionMachine machine;

    platform::CurrentValueSubject<AccountState> stateSubject{AccountState::loading()};
    platform::CurrentValueSubject<NewsletterStatus> newsletterStatus{NewsletterStatus::idle};
    platform::CurrentValueSubject<std::optional<AccountDiagnostic>> diagnostic{std::nullopt};

private:
    /// Whose newsletter the status is about.
    class NewsletterUser
    {
    public:
        enum class Change
        {
            none,
            /// The account information has told who the user is.
            named,
            another
        };
        /// What this state means for it; the state's user is remembered.
        Change changeWith(const AccountState& state);
        /// A new number with each change, for requests to tell whether they are still meant.
        int number() const { return number_; }

    private:
        Change found(const AccountState& state);

        int number_ = 0;
        std::optional<std::string> user_;
        std::optional<boost::uuids::uuid> uuid_;
    };

    using Stored = std::optional<platform::SecretBytes>;

    /// A call of the host that has not ended.
    struct Call
    {
        Generation generation;
        Belongs belongs;
        std::function<void()> cancel;
    };
    /// Keeps a call listed until it ends.
    class Listed;

    /// When a call was made.
    struct Made
    {
        Generation generation;
        /// Of all calls, in their order.
        std::uint64_t number;
    };
    template <class T>
    static Awaitable<T> carriedOver(Self self, Belongs belongs, Made made, Work<T> work);
    template <class T>
    static Awaitable<T> onMain(Self self, Belongs belongs, Made made, Work<T> work);
    template <class T>
    static Awaitable<T> turn(Self self, Belongs belongs, Generation generation, Work<T> work);

    // ---- Session.cpp

    bool isCurrent(Generation generation) const
    {
        return !released_ && generation == machine.generation();
    }
    /// Throws `CancellationError` when the generation has passed.
    void requireCurrent(Generation generation) const;
    /// The same for calls; those that belong to nobody end with the account.
    void requireStanding(Belongs belongs, Generation generation) const;
    /// Whether a sign-in that was called then comes after all that has begun since.
    bool mayBegin(const Made& made) const;
    platform::Date now() const { return services.clock->now(); }

    /// The token of the state. Throws `accountRequired`.
    platform::SecretString requiredToken() const;

    void generationBegins();
    void carryOut(const SessionOrders& orders);
    void publish(AccountTransitionCause cause);
    void record(AccountTransitionCause cause);
    void report(std::optional<AccountDiagnostic> noticed) { diagnostic.send(std::move(noticed)); }
    void report(AccountDiagnosticCode code, const std::exception_ptr& error);
    /// Gives the service its token. It begins at once, and the actor keeps the order: a call that
    /// is awaited right after it, with nothing in between, is made with this token.
    void handOff(std::optional<platform::SecretString> token);
    void announce();
    void orderAnnouncement();
    struct End
    {
        bool onServer;
        /// The one token that is meant; another that is stored stays.
        const platform::SecretString* onlyOf = nullptr;
    };
    Generation signOutBegins();
    void endSession(Generation generation, AccountTransitionCause cause, const End& end);
    void finishDeauthentication();
    void removeInfo();
    void clearDiagnostic();

    /// Runs what waits for the disk, and comes back.
    template <class T>
    Awaitable<T> onStorage(std::function<T(SessionStore&)> work) const;

    // ---- SessionSignIn.cpp

    static Awaitable<AccountState> signInToEnd(Self self, Generation generation,
                                               Awaitable<AccountState> steps);
    static Awaitable<AccountState> exchange(Self self, Generation generation,
                                            platform::SecretString email,
                                            platform::SecretString code);
    static Awaitable<AccountState> adopt(Self self, Generation generation,
                                         platform::SecretString text, bool fromServer);
    static Awaitable<void> keepToken(Self self, Generation generation, platform::SecretString text,
                                     bool fromServer);
    static Awaitable<AccountState> loadAfterSignIn(Self self, Generation generation,
                                                   AccountTokenJWT token);
    Generation signInBegins();
    void signInEnds();
    void storedTooLate(Generation begun, const platform::SecretString& token);
    void endOnServer(const platform::SecretString& token);

    // ---- SessionRefresh.cpp

    static Awaitable<platform::SecretString> fetchInfo(Self self, Generation generation,
                                                       platform::SecretString token);
    AccountInfoJWT verifiedInfo(std::span<const std::byte> text);
    /// Whether the keychain took it; what it did not take is in the diagnostic.
    static Awaitable<bool> keepInfo(Self self, Generation generation, platform::SecretString text);

    static Awaitable<void> restore(Self self, Generation generation, AccountTransitionCause cause);
    /// Joins a restoration that is under way.
    static Awaitable<void> restoreOnce(Self self, Generation generation);
    static Awaitable<void> restoreAtLaunch(Self self, Generation generation);
    void decodeStoredInfo(const platform::SecretBytes& info, StoredSession& session);
    void reportUnrestored(const std::exception_ptr& error);

    /// Why a refresh reads the keychain first, if it does.
    using Restoration = std::optional<AccountTransitionCause>;

    static Awaitable<void> refreshWhenDue(Self self, Generation generation, bool force);
    void startRefresh(Restoration restoration = std::nullopt);
    static Awaitable<void> refreshToEnd(Self self, Generation generation, Restoration restoration);
    static Awaitable<void> loadInfo(Self self, Generation generation);
    static Awaitable<void> refreshAfterConsent(Self self, Generation generation);
    void refreshFails(const std::exception_ptr& error, bool notRestored);
    void scheduleRetry();
    static Awaitable<void> retryRefresh(Self self, Generation generation);
    static Awaitable<void> retryAttempt(Self self, Generation generation);

    /// Waits while a sign-in is under way, however it ends.
    static Awaitable<void> signInEnded(Self self);
    void endDeleted();
    static Awaitable<void> sendNewsletter(Self self, Generation generation,
                                          platform::SecretString token);

    // ---- SessionFollowing.cpp

    void keysChanged(const platform::ExternalKeyValueChange& change);
    void lookForTokenChange(int reads);
    static Awaitable<void> pollToken(Self self, int reads);
    static Awaitable<Stored> readToken(Self self);
    static Awaitable<void> pauseWhile(std::shared_ptr<platform::Clock> clock,
                                      std::weak_ptr<const void> reading);
    static Awaitable<void> removeLeftBehind(Self self, Generation generation);
    /// Whether there was anything to follow.
    bool follow(Stored token, bool announced);
    void followSignOut();
    void followSignIn(Stored token);

    // The words of the session (its service, its tasks) stand without an underscore, as they do in
    // the records of decisions; what only serves them has one.
    const platform::Executor main_;
    const std::shared_ptr<EndableURLSession> network_;
    AccountService service;
    /// Tells the server of sign-outs, also when the account has gone meanwhile.
    AccountService farewell_;
    JWTDecoder jwtDecoder;
    const std::shared_ptr<SessionStore> store_;
    const std::shared_ptr<AccountHistory> history_;

    TaskSlot environmentTokenChangeTask;
    /// The reads that it may make; more than one where another program has announced a change.
    int lookReads_ = 0;
    TaskSlot accountRefreshRetryTask;
    TaskSlot refreshTask;
    TaskSlot restoreTask_;
    TaskSlot afterConsentTask_;
    /// Open for a tenth of a second after the begin of each read that an announcement has caused,
    /// and until its end.
    TaskSlot tokenReadPause_;
    std::optional<platform::Task<AccountState>> signInTask_;
    std::vector<platform::Task<void>> serverSignOuts_;
    std::list<Call> calls_;
    std::uint64_t callsMade_ = 0;
    /// The sign-in that has begun last, and its generation.
    struct
    {
        Made made{};
        Generation begun = 0;
    } latestSignIn_;

    /// What a sign-in has interrupted, to be taken up again if it adopts no token.
    struct Interrupted
    {
        bool restore = false;
        bool refresh = false;
        /// Only asked for, and to be made if it is due then.
        bool activation = false;
        /// The reads of a look for a changed token.
        int look = 0;
    };
    Interrupted interrupted_;

    /// The token of the state, if the server has deleted its account: it ends as soon as it may.
    std::optional<platform::SecretString> deleted_;
    /// A `deauthenticate` that has begun, and not yet ended the session.
    std::optional<Generation> deauthenticating_;
    NewsletterUser newsletterUser_;
    /// Null where there is no store to announce in.
    std::shared_ptr<TokenAnnouncement> announcement_;
    std::vector<platform::Subscription> cancellables;
    bool released_ = false;
};

}  // namespace tessera
