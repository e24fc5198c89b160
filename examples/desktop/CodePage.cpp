#include "CodePage.hpp"

#include "Widgets.hpp"

#include <QtWidgets/QBoxLayout>
#include <QtWidgets/QLineEdit>

namespace desktop
{
namespace
{

/// Large digits with some air between them.
QFont codeFont(QFont font)
{
    constexpr double larger = 1.4;
    constexpr double air = 130;
    font.setPointSizeF(font.pointSizeF() * larger);
    font.setLetterSpacing(QFont::PercentageSpacing, air);
    return font;
}

}  // namespace

CodePage::CodePage(AccountObject& account)
    : account_(account),
      sent_(paragraph()),
      code_(new QLineEdit),
      error_(new ErrorLabel("codeError", ErrorLabel::Space::kept)),
      signIn_(mainButton(tr("Sign &In"), "signIn")),
      sendAgain_(button(tr("Send &Again"), "sendAgain")),
      back_(button(tr("&Back"), "back")),
      busy_(new BusyBar)
{
    sent_->setObjectName("codeSent");
    code_->setObjectName("code");
    code_->setFont(codeFont(code_->font()));
    code_->setAlignment(Qt::AlignCenter);
    code_->setInputMethodHints(Qt::ImhDigitsOnly | Qt::ImhSensitiveData);
    setFocusProxy(code_);

    auto* column = centredColumn(this);
    column->addStretch();
    column->addWidget(title(tr("Check your mail")));
    column->addWidget(sent_);
    column->addSpacing(fontMetrics().height());
    addField(column, tr("&Code from the mail"), code_);
    column->addWidget(error_);
    column->addWidget(signIn_);
    auto* others = new QHBoxLayout;
    others->addWidget(back_);
    others->addStretch();
    others->addWidget(sendAgain_);
    column->addLayout(others);
    column->addWidget(busy_);
    column->addStretch();

    connect(code_, &QLineEdit::returnPressed, this, &CodePage::signIn);
    connect(signIn_, &QPushButton::clicked, this, &CodePage::signIn);
    connect(sendAgain_, &QPushButton::clicked, this, &CodePage::sendAgain);
    connect(back_, &QPushButton::clicked, this,
            [this]
            {
                begin({});
                Q_EMIT leave();
            });
}

void CodePage::begin(const QString& email)
{
    if (call_)
        call_->cancel();
    call_.reset();
    ++calls_;
    email_ = email;
    sent_->setText(tr("We have mailed a code to %1.").arg(email));
    code_->clear();
    setBusy(false);
}

void CodePage::signIn()
{
    const auto code = code_->text().simplified().remove(' ');
    if (code.isEmpty())
        return failed(tr("Please type the code from the mail."));
    setBusy(true);
    signIn_->setText(tr("Signing In…"));
    const int number = ++calls_;
    call_ = account_.signIn(email_, code, this,
                            [this, number](const QString& error)
                            {
                                if (number != calls_)
                                    return;
                                setBusy(false);
                                if (!error.isEmpty())
                                    failed(error);
                            });
}

void CodePage::sendAgain()
{
    setBusy(true);
    const int number = ++calls_;
    call_ = account_.requestCode(email_, this,
                                 [this, number](const QString& error)
                                 {
                                     if (number != calls_)
                                         return;
                                     setBusy(false);
                                     if (!error.isEmpty())
                                         return failed(error);
                                     code_->clear();
                                     code_->setFocus();
                                     sent_->setText(tr("We have mailed a new code to %1. Codes "
                                                       "that came before do not count any more.")
                                                        .arg(email_));
                                 });
}

void CodePage::setBusy(bool busy)
{
    error_->say({});
    code_->setEnabled(!busy);
    signIn_->setEnabled(!busy);
    signIn_->setText(tr("Sign &In"));
    sendAgain_->setEnabled(!busy);
    busy_->setVisible(busy);
}

void CodePage::failed(const QString& error)
{
    error_->say(error);
    code_->setFocus();
    code_->selectAll();
}

}  // namespace desktop
