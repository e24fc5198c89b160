#include "AccountObject.hpp"

#include <Platform/Basics/LocalizedError.hpp>
#include <Platform/Concurrency/CancellationError.hpp>

#include <QtCore/QEventLoopLocker>
#include <QtGui/QGuiApplication>

#include <memory>

namespace desktop
{
namespace
{

platform::SecretString secret(const QString& text)
{
    return platform::SecretString(text.toStdString());
}

QUrl url(const platform::URL& address)
{
    return QUrl(QString::fromStdString(address.string()));
}

QString sentence(const std::exception_ptr& error)
{
    if (!error)
        return {};
    try
    {
        std::rethrow_exception(error);
    }
    catch (const platform::CancellationError&)
    {
        return {};
    }
    catch (...)
    {
        return QString::fromStdString(platform::describe(error));
    }
}

}  // namespace

AccountObject::AccountObject(tessera::AccountEnvironment environment, tessera::AccountClient client,
                             const platform::Services& services)
    : website_(url(environment.marketingURL)),
      mainThread_(platform::executorOf(services.mainActor)),
      account_(std::move(environment), std::move(client), services)
{
    subscriptions_.push_back(
        account_.statePublisher().subscribe([this](const auto&) { Q_EMIT stateChanged(); }));
    subscriptions_.push_back(account_.newsletterStatusPublisher().subscribe(
        [this](const auto&) { Q_EMIT newsletterChanged(); }));
    subscriptions_.push_back(
        account_.diagnosticPublisher().subscribe([this](const auto&) { Q_EMIT problemChanged(); }));
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state)
            {
                if (state == Qt::ApplicationActive)
                    account_.applicationDidBecomeActive();
            });
}

QString AccountObject::programName() const
{
    return QString::fromStdString(account_.client().localizedName);
}

QUrl AccountObject::accountPage() const
{
    return url(account_.accountURL());
}

void AccountObject::launch()
{
    account_.applicationWillFinishLaunching();
    if (QGuiApplication::applicationState() == Qt::ApplicationActive)
        account_.applicationDidBecomeActive();
}

template <class T>
AccountObject::Call AccountObject::start(platform::Awaitable<T> work, QObject* receiver, End end)
{
    return platform::start<T>(
        mainThread_, std::move(work),
        [guarded = QPointer(receiver), end = std::move(end)](const platform::Outcome<T>& outcome)
        {
            if (guarded)
                end(sentence(outcome.error()));
        });
}

AccountObject::Call AccountObject::requestCode(const QString& email, QObject* receiver, End end)
{
    return start(account_.requestOneTimeCode(secret(email)), receiver, std::move(end));
}

AccountObject::Call AccountObject::signIn(const QString& email, const QString& code,
                                          QObject* receiver, End end)
{
    return start(account_.signIn(secret(email), secret(code)), receiver, std::move(end));
}

AccountObject::Call AccountObject::reload(QObject* receiver, End end)
{
    return start(account_.refresh(true), receiver, std::move(end));
}

AccountObject::Call AccountObject::acceptTerms(QObject* receiver, End end)
{
    tessera::AccountTerms terms;
    if (const auto* profile = state().get<tessera::AccountProfile>())
        terms = profile->info().terms;
    return start(account_.consentToTerms(terms.currentRevision, terms.preferredLanguage()),
                 receiver, std::move(end));
}

AccountObject::Call AccountObject::subscribe(QObject* receiver, End end)
{
    return start(account_.requestNewsletter(), receiver, std::move(end));
}

AccountObject::Call AccountObject::deleteAccount(QObject* receiver, End end)
{
    return start(account_.deleteAccount(), receiver, std::move(end));
}

void AccountObject::signOut()
{
    account_.signOut();
    // Held by the end of the call, which keeps the event loop from ending with the last window.
    start(account_.serverSignOutEnded(), this,
          [stay = std::make_shared<QEventLoopLocker>()](const QString&) {});
}

}  // namespace desktop
