#include "AccountWindow.hpp"

#include "AccountObject.hpp"
#include "AccountPanel.hpp"
#include "MessagePanel.hpp"
#include "ProblemBanner.hpp"
#include "SignInPanel.hpp"

#include <QtWidgets/QStackedLayout>
#include <QtWidgets/QVBoxLayout>

namespace desktop
{

AccountWindow::AccountWindow(AccountObject& account)
    : account_(account),
      signIn_(new SignInPanel(account)),
      message_(new MessagePanel(account)),
      signedIn_(new AccountPanel(account)),
      pages_(new QStackedLayout)
{
    setWindowTitle(tr("Account"));
    pages_->addWidget(message_);
    pages_->addWidget(signIn_);
    pages_->addWidget(signedIn_);

    auto* column = new QVBoxLayout(this);
    // One size for all pages, in terms of the user's font.
    const int line = fontMetrics().height();
    setMinimumSize(38 * line, 36 * line);
    const int margin = 2 * line;
    column->setContentsMargins(margin, margin, margin, margin);
    column->addWidget(new ProblemBanner(account));
    column->addLayout(pages_);

    connect(&account, &AccountObject::stateChanged, this, &AccountWindow::showState);
    showState();
}

void AccountWindow::showState()
{
    QWidget* page = message_;
    if (account_.state().get<tessera::AccountState::SignedOut>())
        page = signIn_;
    else if (account_.state().get<tessera::AccountProfile>())
        page = signedIn_;
    if (page == pages_->currentWidget())
        return;
    pages_->setCurrentWidget(page);
    page->setFocus();
}

}  // namespace desktop
