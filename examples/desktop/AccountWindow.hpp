#pragma once

#include <QtWidgets/QWidget>

class QStackedLayout;

namespace desktop
{

class AccountObject;
class AccountPanel;
class MessagePanel;
class SignInPanel;

/// The user's account in one window: a page for each state of the session, and above it what went
/// wrong in the background. The account must outlive it.
class AccountWindow final : public QWidget
{
    Q_OBJECT

public:
    explicit AccountWindow(AccountObject& account);

private:
    void showState();

    AccountObject& account_;
    SignInPanel* signIn_;
    MessagePanel* message_;
    AccountPanel* signedIn_;
    QStackedLayout* pages_;
};

}  // namespace desktop
