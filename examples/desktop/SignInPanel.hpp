#pragma once

#include <QtWidgets/QStackedWidget>

namespace desktop
{

class AccountObject;
class CodePage;
class EmailPage;

/// Signs the user in: first the address, then the code that was mailed to it. It begins anew
/// whenever it is shown.
class SignInPanel final : public QStackedWidget
{
    Q_OBJECT

public:
    explicit SignInPanel(AccountObject& account);

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void askForEmail();
    void askForCode(const QString& email);

    EmailPage* email_;
    CodePage* code_;
};

}  // namespace desktop
