#pragma once

#include <QtWidgets/QWidget>

class QLineEdit;
class QPushButton;

namespace desktop
{

class AccountObject;
class BusyBar;
class ErrorLabel;

/// Asks for the address, and has a code mailed to it.
class EmailPage final : public QWidget
{
    Q_OBJECT

public:
    explicit EmailPage(AccountObject& account);

Q_SIGNALS:
    void codeSent(const QString& email);

private:
    void send();
    void setBusy(bool busy);

    AccountObject& account_;
    QLineEdit* email_;
    ErrorLabel* error_;
    QPushButton* send_;
    BusyBar* busy_;
};

}  // namespace desktop
