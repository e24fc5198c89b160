#include "AccountPanel.hpp"

#include "AccountObject.hpp"
#include "Avatar.hpp"
#include "NewsletterPanel.hpp"
#include "Questions.hpp"
#include "TermsPanel.hpp"
#include "Widgets.hpp"

#include <QtCore/QDateTime>
#include <QtCore/QLocale>
#include <QtGui/QDesktopServices>
#include <QtGui/QHideEvent>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QVBoxLayout>

namespace desktop
{
namespace
{

QLabel* value(const char* name)
{
    auto* label = paragraph();
    label->setObjectName(name);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setFocusPolicy(Qt::NoFocus);
    return label;
}

QString text(platform::Date date)
{
    const auto seconds = static_cast<qint64>(date.secondsSince1970);
    return QLocale::system().toString(QDateTime::fromSecsSinceEpoch(seconds), QLocale::ShortFormat);
}

QString text(const tessera::AccountTerms& terms)
{
    return terms.needsConsent() ? AccountPanel::tr("not accepted yet")
                                : AccountPanel::tr("accepted (%1)")
                                      .arg(QString::fromStdString(terms.acceptedRevision));
}

}  // namespace

AccountPanel::AccountPanel(AccountObject& account)
    : account_(account),
      avatar_(new Avatar),
      name_(title({})),
      user_(value("user")),
      terms_(value("acceptedTerms")),
      loaded_(value("loaded")),
      error_(new ErrorLabel("accountError", ErrorLabel::Space::whenNeeded)),
      busy_(new BusyBar),
      manage_(button(tr("&Manage Account…"), "manageAccount")),
      delete_(button(tr("&Delete Account…"), "deleteAccount")),
      signOut_(button(tr("Sign &Out…"), "signOut"))
{
    name_->setObjectName("name");
    setFocusProxy(signOut_);

    auto* names = new QVBoxLayout;
    names->setSpacing(0);
    names->addWidget(name_);
    names->addWidget(note(tr("Signed in")));
    auto* head = new QHBoxLayout;
    head->addWidget(avatar_);
    head->addSpacing(fontMetrics().height() / 2);
    head->addLayout(names, 1);

    auto* details = new QFormLayout;
    details->addRow(tr("User:"), user_);
    details->addRow(tr("Terms:"), terms_);
    details->addRow(tr("Last loaded:"), loaded_);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(delete_);
    buttons->addStretch();
    buttons->addWidget(manage_);
    buttons->addWidget(signOut_);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins({});
    column->setSpacing(fontMetrics().height());
    column->addLayout(head);
    column->addLayout(details);
    column->addWidget(new TermsPanel(account));
    column->addWidget(new NewsletterPanel(account));
    column->addStretch();
    column->addWidget(error_);
    column->addWidget(busy_);
    column->addLayout(buttons);

    // Deletion last, so that nobody comes upon it.
    setTabOrder(manage_, signOut_);
    setTabOrder(signOut_, delete_);

    connect(manage_, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(account_.accountPage()); });
    connect(delete_, &QPushButton::clicked, this, &AccountPanel::askForDeletion);
    connect(signOut_, &QPushButton::clicked, this, &AccountPanel::askForSignOut);
    connect(&account, &AccountObject::stateChanged, this, &AccountPanel::showState);
    showState();
}

void AccountPanel::showState()
{
    const auto* profile = account_.state().get<tessera::AccountProfile>();
    if (!profile)
        return;
    const auto& info = profile->info();
    const auto email = info.email ? QString::fromUtf8(info.email->view().data(),
                                                      static_cast<int>(info.email->size()))
                                  : tr("Account without an address");
    avatar_->setName(email);
    name_->setText(email);
    user_->setText(QString::fromStdString(info.user));
    terms_->setText(text(info.terms));
    loaded_->setText(text(info.issuedAt));
}

void AccountPanel::askForSignOut()
{
    question_ = ask(this,
                    {"signOutQuestion", tr("Do you want to sign out?"),
                     tr("Other programs on this computer that use this account are signed out, "
                        "too."),
                     tr("Sign &Out")},
                    [this] { account_.signOut(); });
}

void AccountPanel::askForDeletion()
{
    question_ =
        ask(this,
            {"deleteQuestion", tr("Do you want to delete your account?"),
             tr("The account of %1 and everything in it are deleted for good.").arg(name_->text()),
             tr("&Delete Account")},
            [this] { deleteAccount(); });
}

void AccountPanel::deleteAccount()
{
    error_->say({});
    busy_->show();
    delete_->setEnabled(false);
    account_.deleteAccount(this,
                           [this](const QString& error)
                           {
                               busy_->hide();
                               delete_->setEnabled(true);
                               error_->say(error);
                           });
}

void AccountPanel::hideEvent(QHideEvent* event)
{
    // The account that a question was about is not there any more.
    if (!event->spontaneous())
    {
        if (question_)
            question_->close();
        error_->say({});
    }
    QWidget::hideEvent(event);
}

}  // namespace desktop
