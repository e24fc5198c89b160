#include "SignInPanel.hpp"

#include "CodePage.hpp"
#include "EmailPage.hpp"

#include <QtGui/QHideEvent>

namespace desktop
{

SignInPanel::SignInPanel(AccountObject& account)
    : email_(new EmailPage(account)), code_(new CodePage(account))
{
    addWidget(email_);
    addWidget(code_);
    setFocusProxy(email_);
    connect(email_, &EmailPage::codeSent, this, &SignInPanel::askForCode);
    connect(code_, &CodePage::leave, this, &SignInPanel::askForEmail);
}

void SignInPanel::askForEmail()
{
    setCurrentWidget(email_);
    setFocusProxy(email_);
    email_->setFocus();
}

void SignInPanel::askForCode(const QString& email)
{
    code_->begin(email);
    setCurrentWidget(code_);
    setFocusProxy(code_);
    code_->setFocus();
}

void SignInPanel::hideEvent(QHideEvent* event)
{
    // Not for a window that is only minimised: the user is just looking for the mail.
    if (!event->spontaneous())
    {
        code_->begin({});
        setCurrentWidget(email_);
        setFocusProxy(email_);
    }
    QStackedWidget::hideEvent(event);
}

}  // namespace desktop
