#pragma once

#include <QtWidgets/QGroupBox>

class QLabel;
class QPushButton;

namespace desktop
{

class AccountObject;
class ErrorLabel;

/// Subscribes the user to the newsletter.
class NewsletterPanel final : public QGroupBox
{
    Q_OBJECT

public:
    explicit NewsletterPanel(AccountObject& account);

private:
    void showStatus();
    void subscribe();

    AccountObject& account_;
    QLabel* text_;
    QPushButton* subscribe_;
    ErrorLabel* error_;
};

}  // namespace desktop
