#pragma once

#include <QtWidgets/QWidget>

class QLabel;
class QPushButton;

namespace desktop
{

class AccountObject;
class BusyBar;

/// The states without account information: loading, failed, and signed in without knowing more.
class MessagePanel final : public QWidget
{
    Q_OBJECT

public:
    explicit MessagePanel(AccountObject& account);

private:
    void showState();
    void showMessage(const QString& title, const QString& text, bool busy);
    void tryAgain();

    AccountObject& account_;
    bool trying_ = false;
    QLabel* title_;
    QLabel* text_;
    BusyBar* busy_;
    QPushButton* tryAgain_;
    QPushButton* signOut_;
};

}  // namespace desktop
