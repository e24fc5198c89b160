#include "EmailPage.hpp"

#include "AccountObject.hpp"
#include "Widgets.hpp"

#include <QtWidgets/QBoxLayout>
#include <QtWidgets/QLineEdit>

namespace desktop
{

EmailPage::EmailPage(AccountObject& account)
    : account_(account),
      email_(new QLineEdit),
      error_(new ErrorLabel("emailError", ErrorLabel::Space::kept)),
      send_(mainButton(tr("&Send Code"), "sendCode")),
      busy_(new BusyBar)
{
    email_->setObjectName("email");
    email_->setPlaceholderText(tr("name@example.com"));
    email_->setInputMethodHints(Qt::ImhEmailCharactersOnly | Qt::ImhNoPredictiveText);
    setFocusProxy(email_);

    auto* column = centredColumn(this);
    column->addStretch();
    column->addWidget(title(tr("Sign in to %1").arg(account.programName())));
    column->addWidget(
        paragraph(tr("We mail you a code that signs you in. There is no password, and "
                     "a new account is made by the first sign-in.")));
    column->addSpacing(fontMetrics().height());
    addField(column, tr("&E-mail address"), email_);
    column->addWidget(error_);
    column->addWidget(send_);
    column->addWidget(busy_);
    column->addStretch();

    connect(email_, &QLineEdit::returnPressed, this, &EmailPage::send);
    connect(send_, &QPushButton::clicked, this, &EmailPage::send);
}

void EmailPage::send()
{
    const auto email = email_->text().trimmed();
    if (email.isEmpty())
    {
        error_->say(tr("Please type your e-mail address."));
        email_->setFocus();
        return;
    }
    setBusy(true);
    account_.requestCode(email, this,
                         [this, email](const QString& error)
                         {
                             setBusy(false);
                             error_->say(error);
                             if (error.isEmpty())
                                 Q_EMIT codeSent(email);
                             else
                                 email_->setFocus();
                         });
}

void EmailPage::setBusy(bool busy)
{
    error_->say({});
    email_->setEnabled(!busy);
    send_->setEnabled(!busy);
    send_->setText(busy ? tr("Sending…") : tr("&Send Code"));
    busy_->setVisible(busy);
}

}  // namespace desktop
