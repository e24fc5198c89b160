#pragma once

#include <Platform/Concurrency/Task.hpp>
#include <Tessera/Session/Account.hpp>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QUrl>

#include <functional>
#include <vector>

namespace desktop
{

/// The account as Qt programs like it: signals for what changes, and calls that tell a receiver
/// how they ended. It forwards the program's activation to the account.
///
/// The end of a call is told on the main thread, and to nobody once the receiver is gone. What it
/// gets is a sentence for the user, or an empty text: the call went well, or has been overtaken by
/// a change of the state, which the window shows anyway.
class AccountObject final : public QObject
{
    Q_OBJECT

public:
    using Call = platform::Task<void>;
    using End = std::function<void(const QString& error)>;

    AccountObject(tessera::AccountEnvironment environment, tessera::AccountClient client,
                  const platform::Services& services);

    const tessera::AccountState& state() const { return account_.state(); }
    tessera::Account::NewsletterStatus newsletter() const { return account_.newsletterStatus(); }
    const std::optional<tessera::AccountDiagnostic>& problem() const
    {
        return account_.diagnostic();
    }

    /// The name of the program, as its user knows it.
    QString programName() const;
    /// Where the user manages the account.
    QUrl accountPage() const;
    /// The web site, where the terms can be read.
    QUrl website() const { return website_; }

    /// Finds the session of the last run. To be called once, when the window is there.
    void launch();

    Call requestCode(const QString& email, QObject* receiver, End end);
    Call signIn(const QString& email, const QString& code, QObject* receiver, End end);
    Call reload(QObject* receiver, End end);
    Call acceptTerms(QObject* receiver, End end);
    Call subscribe(QObject* receiver, End end);
    Call deleteAccount(QObject* receiver, End end);

    /// At once. The program stays until the server has been told, also without a window.
    void signOut();
    /// Gives up a session that cannot be read any more.
    void forgetSession() { account_.deauthenticate(); }

Q_SIGNALS:
    void stateChanged();
    void newsletterChanged();
    void problemChanged();

private:
    template <class T>
    Call start(platform::Awaitable<T> work, QObject* receiver, End end);

    QUrl website_;
    platform::Executor mainThread_;
    tessera::Account account_;
    std::vector<platform::Subscription> subscriptions_;
};

}  // namespace desktop
