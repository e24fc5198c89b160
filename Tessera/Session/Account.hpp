#pragma once

#include "Platform/Observation/Publisher.hpp"
#include "Platform/Services/Services.hpp"
#include "Tessera/Model/AccountClient.hpp"
#include "Tessera/Model/AccountEnvironment.hpp"
#include "Tessera/Model/AccountState.hpp"
#include "Tessera/Session/AccountDiagnostic.hpp"
#include "Tessera/Session/AccountTokenProviding.hpp"
#include "Tessera/Session/AccountTransition.hpp"

#include <memory>
#include <vector>

namespace tessera
{

/// The user's session with the account server: signs in and out, keeps the account information
/// fresh, follows what other programs of the user do, and publishes where the session stands.
///
///     Account account(AccountEnvironment::directProduction(), client);
///     auto subscription = account.statePublisher().subscribe(show);
///     account.applicationWillFinishLaunching();
///
/// Purpose: a host makes one at its start, forwards its two lifecycle events, and calls the
/// operations from its user interface. All programs of the user that name the same environment
/// share one sign-in.
///
/// Thread: the main thread (`platform::Services::mainActor`, which the host must name) makes it,
/// calls its members, hears its publishers and destroys it; an operation that is called from
/// elsewhere stops the process. The awaitables that it returns may be awaited on any executor. No
/// member waits for the network. `signOut` removes the session from the keychain on the main
/// thread. So does the account by itself, when the server has confirmed a deletion, when a sign-in
/// got another user's information, and in the turn after `deauthenticate`; all this waits as
/// `signOut` says.
///
/// Ownership: the host holds it. When it is destroyed its work ends: calls under way throw
/// `CancellationError`, nothing is published or sent any more. What had begun is brought to its end
/// before the destructor returns, which may wait for the disk: a token that is just being written
/// is announced, a `deauthenticate` is carried out. The server's half of a sign-out that had begun
/// goes on by itself, and so do `history` and `serverSignOutEnded`. Calls end in turns of the main
/// thread's loop: one that another thread awaits never ends if the loop turns no more after this.
///
/// Errors: an operation throws what it names, what `AccountService` throws, and
/// `platform::CancellationError` when its caller is cancelled, and when a sign-in, a sign-out or
/// another program's change took its session away. An empty keychain identifier in the environment
/// or the client stops the process.
class Account final : public AccountTokenProviding
{
public:
    /// How far `requestNewsletter` has come.
    enum class NewsletterStatus
    {
        idle,
        submitting,
        subscribed
    };

    Account(AccountEnvironment environment, AccountClient client,
            platform::Services services = platform::services());
    ~Account() override;
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    const platform::URL& accountURL() const noexcept;
    AccountEnvironment::Server server() const noexcept;
    AccountEnvironment::Distribution distribution() const noexcept;
    const AccountClient& client() const noexcept;

    /// Where the session stands; the reference holds until the next change. A subscriber hears of
    /// every assignment, in order; inside a handler, this may be newer than what the handler is
    /// told.
    const AccountState& state() const noexcept;
    platform::Publisher<AccountState> statePublisher() const;

    /// The bearer token of `pending` and `signedIn`, nothing in every other state.
    platform::Publisher<std::optional<platform::SecretString>> token() const override;

    /// It belongs to the user: a change of user begins with `idle`.
    NewsletterStatus newsletterStatus() const noexcept;
    platform::Publisher<NewsletterStatus> newsletterStatusPublisher() const;

    /// What went wrong where no call could throw it; nothing when the last attempt went well.
    const std::optional<AccountDiagnostic>& diagnostic() const noexcept;
    platform::Publisher<std::optional<AccountDiagnostic>> diagnosticPublisher() const;

    /// Whether this host must not be used without signing in: true for alpha and beta releases.
    bool requireLogin() const noexcept;

    /// To be called once at the start: restores the stored session. No stored token gives
    /// `signedOut`, a token `pending`, token and account information `signedIn` of source `local`.
    /// A keychain that cannot be read leaves `loading`.
    void applicationWillFinishLaunching();

    /// To be called whenever the host comes to the front: refreshes what is an hour old or has
    /// failed, and looks whether another program has changed the session. The first call of a run
    /// is what loads the account information of a restored session.
    void applicationDidBecomeActive();

    /// Has a one-time code mailed. The state is not touched.
    platform::Awaitable<void> requestOneTimeCode(platform::SecretString email);

    /// Exchanges the mailed code for a session, and returns the state reached: `signedIn`, or
    /// `pending` when the account information could not be loaded after five attempts, which is
    /// then tried again in the background. The waits between them are 15 seconds in all, and each
    /// request may take up to its timeout (60 seconds) in addition; meanwhile `refresh` waits, and
    /// so does the sign-out after a `deleteAccount`.
    ///
    /// On behalf of an account without an e-mail address, the address is attached to that account.
    /// Every other session is replaced at once, in all programs, and is not ended on the server: a
    /// host that wants it ended calls `signOut` first.
    ///
    /// Throws `JWTError` and `platform::DecodingError` for a token that is not the server's,
    /// `AccountError::keychainAccess` when it could not be stored. The state is then as before. A
    /// caller that is cancelled after the token was stored leaves `pending`.
    platform::Awaitable<AccountState> signIn(platform::SecretString email,
                                             platform::SecretString oneTimeCode);

    /// Signs out at once, here and in all programs of the user; the server is told in the
    /// background. Cannot fail; what the keychain did not let go is in the `diagnostic`.
    ///
    /// Waits for a read and two removals in the keychain, and for what the storage thread has begun
    /// there: 5 seconds at most for each where another program holds the store. It waits longer, 60
    /// seconds or more, while another thread's read of a protected item waits for the user, who
    /// cannot answer if the question needs the main thread. So a host reads no such item on another
    /// thread while it signs in or out, deletes the account, or destroys this. Of the keychain's
    /// passphrase, see `platform::Services::passphrase`.
    void signOut();

    /// Waits until the server has answered the sign-outs so far, or will not, for programs that end
    /// right after one. Whether it has confirmed the last; false leaves a session that ends by
    /// itself, in time.
    platform::Awaitable<bool> serverSignOutEnded() const;

    /// Deletes the account on the server, and then signs out. Throws
    /// `AccountError::accountRequired` without a session. When it ends with `CancellationError`, or
    /// with a connection that was lost or too slow, the account may have been deleted all the same.
    platform::Awaitable<void> deleteAccount();

    /// Loads the account information anew; with `force` also when the last is less than an hour
    /// old. Joins the refresh in flight where there is one. Throws its error, and
    /// `AccountError::accountRequired` without a session; the last good information stays.
    platform::Awaitable<void> refresh(bool force);

    /// Records that the user accepts this revision of the terms, in the language of the text that
    /// was shown, and then refreshes in the background. Throws `AccountError::accountRequired`.
    platform::Awaitable<void> consentToTerms(std::string revision, std::string language);

    /// Subscribes the user to the newsletter; see `newsletterStatus`. Throws
    /// `AccountError::accountRequired` before anything changes.
    platform::Awaitable<void> requestNewsletter();

    /// Makes a session token, had from elsewhere, the session; returns at once. Failures are in the
    /// `diagnostic`.
    void authenticate(platform::SecretString with);

    /// Ends the session here and in all programs of the user, without telling the server; returns
    /// at once.
    void deauthenticate();

    /// The last 50 transitions of this client's session, oldest first, those of earlier runs and of
    /// other processes included.
    platform::Awaitable<std::vector<AccountTransition>> history() const;

private:
    class Session;

    const std::shared_ptr<Session> session_;
};

}  // namespace tessera
