#pragma once

#include <QtCore/QPointer>
#include <QtWidgets/QWidget>

class QLabel;
class QMessageBox;
class QPushButton;

namespace desktop
{

class AccountObject;
class Avatar;
class BusyBar;
class ErrorLabel;

/// The account of the user who is signed in, and what can be done with it.
class AccountPanel final : public QWidget
{
    Q_OBJECT

public:
    explicit AccountPanel(AccountObject& account);

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void showState();
    void askForSignOut();
    void askForDeletion();
    void deleteAccount();

    AccountObject& account_;
    QPointer<QMessageBox> question_;
    Avatar* avatar_;
    QLabel* name_;
    QLabel* user_;
    QLabel* terms_;
    QLabel* loaded_;
    ErrorLabel* error_;
    BusyBar* busy_;
    QPushButton* manage_;
    QPushButton* delete_;
    QPushButton* signOut_;
};

}  // namespace desktop
