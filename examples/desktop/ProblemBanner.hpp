#pragma once

#include <QtWidgets/QFrame>

class QPushButton;

namespace desktop
{

class AccountObject;
class ErrorLabel;

/// What the account noticed in the background, and what can be done about it. Hidden while there is
/// nothing, and where the page itself tells it.
class ProblemBanner final : public QFrame
{
    Q_OBJECT

public:
    explicit ProblemBanner(AccountObject& account);

private:
    void showProblem();

    AccountObject& account_;
    ErrorLabel* text_;
    QPushButton* tryAgain_;
    QPushButton* signInAgain_;
};

}  // namespace desktop
