#pragma once

#include "AccountObject.hpp"

#include <QtWidgets/QWidget>

class QLabel;
class QLineEdit;
class QPushButton;

namespace desktop
{

class BusyBar;
class ErrorLabel;

/// Asks for the code from the mail and signs in with it. Sends another on request; going back
/// cancels what is under way.
class CodePage final : public QWidget
{
    Q_OBJECT

public:
    explicit CodePage(AccountObject& account);

    /// Starts with an empty field and no call under way.
    void begin(const QString& email);

Q_SIGNALS:
    void leave();

private:
    void signIn();
    void sendAgain();
    void setBusy(bool busy);
    void failed(const QString& error);

    AccountObject& account_;
    QString email_;
    /// Counts the calls: what a cancelled one answers is of no interest.
    int calls_ = 0;
    std::optional<AccountObject::Call> call_;
    QLabel* sent_;
    QLineEdit* code_;
    ErrorLabel* error_;
    QPushButton* signIn_;
    QPushButton* sendAgain_;
    QPushButton* back_;
    BusyBar* busy_;
};

}  // namespace desktop
