#include "MessagePanel.hpp"

#include "AccountObject.hpp"
#include "Widgets.hpp"

#include <QtWidgets/QBoxLayout>

namespace desktop
{

using tessera::AccountPendingProfile;
using tessera::AccountState;

MessagePanel::MessagePanel(AccountObject& account)
    : account_(account),
      title_(title({})),
      text_(paragraph()),
      busy_(new BusyBar),
      tryAgain_(mainButton(tr("&Try Again"), "tryAgain")),
      signOut_(button(tr("Sign &Out"), "messageSignOut"))
{
    title_->setObjectName("messageTitle");
    text_->setObjectName("messageText");
    setFocusProxy(tryAgain_);

    auto* column = centredColumn(this);
    column->addStretch();
    column->addWidget(title_);
    column->addWidget(text_);
    column->addSpacing(fontMetrics().height());
    column->addWidget(busy_);
    column->addWidget(tryAgain_);
    column->addWidget(signOut_);
    column->addStretch();

    connect(tryAgain_, &QPushButton::clicked, this, &MessagePanel::tryAgain);
    connect(signOut_, &QPushButton::clicked, this,
            [this]
            {
                // Without a token there is nothing that the server could be told.
                if (account_.state().token())
                    account_.signOut();
                else
                    account_.forgetSession();
            });
    connect(&account, &AccountObject::stateChanged, this, &MessagePanel::showState);
    connect(&account, &AccountObject::problemChanged, this, &MessagePanel::showState);
    showState();
}

void MessagePanel::showState()
{
    const auto& state = account_.state();
    const auto failedTitle = tr("Your account could not be loaded");
    if (const auto* failed = state.get<AccountState::Failed>())
        showMessage(failedTitle, QString::fromStdString(failed->errorMessage), false);
    else if (state.get<AccountState::Loading>() && account_.problem())
        showMessage(failedTitle, QString::fromStdString(account_.problem()->message), false);
    else if (state.get<AccountState::Loading>())
        showMessage(tr("One moment…"), tr("Your account is being looked for."), true);
    else if (const auto* pending = state.get<AccountPendingProfile>())
        showMessage(tr("You are signed in"),
                    pending->infoErrorMessage ? QString::fromStdString(*pending->infoErrorMessage)
                                              : tr("Your account information is being loaded."),
                    !pending->infoErrorMessage);
}

void MessagePanel::showMessage(const QString& title, const QString& text, bool busy)
{
    title_->setText(title);
    text_->setText(text);
    busy_->setVisible(busy || trying_);
    tryAgain_->setVisible(!busy || trying_);
    tryAgain_->setEnabled(!trying_);
    signOut_->setVisible(!busy);
}

void MessagePanel::tryAgain()
{
    trying_ = true;
    showState();
    // What comes of it is in the state.
    account_.reload(this,
                    [this](const QString&)
                    {
                        trying_ = false;
                        showState();
                    });
}

}  // namespace desktop
