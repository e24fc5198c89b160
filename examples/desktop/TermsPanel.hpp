#pragma once

#include <QtWidgets/QGroupBox>

class QLabel;
class QPushButton;

namespace desktop
{

class AccountObject;
class ErrorLabel;

/// Asks for consent to the terms; hidden while they are accepted.
class TermsPanel final : public QGroupBox
{
    Q_OBJECT

public:
    explicit TermsPanel(AccountObject& account);

private:
    void showTerms();
    void accept();
    void setBusy(bool busy);

    AccountObject& account_;
    QLabel* text_;
    QPushButton* accept_;
    ErrorLabel* error_;
};

}  // namespace desktop
